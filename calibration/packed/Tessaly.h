#pragma once

#include <cstdint>

#include "calcut/vantric_rx.h"
#include "calibration/owners.h"
#include "calibration/Wanted.h"

namespace vantric {

/// A table with room for the entries and none of them yet. The process ends without memory for it,
/// so it comes before what a file makes large.
TableOwner newTessalyTable();

/// Adds the entries to a new table. Those of blocks that are not wanted have a size and no
/// destination. False when memory ran out.
bool fillTessalyTable(RXBlockTable& table, VantricCalibration& record, std::uint64_t numPixels,
                      Wanted wanted);

}  // namespace vantric
