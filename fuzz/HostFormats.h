// Calibration formats that a host registers, inside the documented contracts.
#pragma once

#include <cstdint>

#include "calcut/vantric.h"
#include "targets.h"

namespace fuzz {

/// Handlers in the order of their number: a format of the host that fills records, one without the
/// optional functions, and one that reads packed calibrations and changes the result.
constexpr unsigned hostHandlers = 3;
const VantricCalibrationHandler& hostHandler(unsigned number);

/// The first bytes of the host's own formats, and the size of their data.
constexpr std::uint8_t fillingMagic = 'H';
constexpr std::uint8_t bareMagic = 'B';
constexpr std::size_t hostDataSize = 7;

/// Whether the data is in one of the host's own formats. Their handlers rely on records of enough
/// pixels and do not look themselves.
bool isHostData(const Bytes& data);
/// Pixels for which a record must have been made before the data is read into it.
std::uint64_t pixelsOf(const Bytes& data);

}  // namespace fuzz
