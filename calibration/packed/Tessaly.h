#pragma once

#include <cstdint>

#include "calcut/vantric_rx.h"
#include "calibration/packed/Wanted.h"

namespace vantric {

/// vantric_createTessalyTable for what is wanted of the calibration: a cut has no place for the
/// per-pixel tables, whose entries then have a size and no destination.
RXBlockTable* createTessalyTable(VantricCalibration& record, std::uint64_t numPixels,
                                 Wanted wanted);

}  // namespace vantric
