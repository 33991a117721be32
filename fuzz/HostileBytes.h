#pragma once

#include "Input.h"
#include "targets.h"

namespace fuzz {

/// One of a few small calibrations.
const Bytes& goodCalibration(unsigned number);

/// The bytes that a call is given: a small calibration as it is, damaged or claiming another size,
/// data in a format of the host, or anything, as the input says.
Bytes hostileBytes(Input& input);

}  // namespace fuzz
