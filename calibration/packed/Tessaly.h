#pragma once

#include <cstdint>

#include "calcut/vantric_rx.h"
#include "calibration/owners.h"
#include "calibration/Wanted.h"

namespace vantric {

/// A table without entries yet. Aborts without memory, so it is made before everything whose size a
/// file decides.
TableOwner newTessalyTable();

/// Adds the entries to a new table. Those of blocks that are not wanted have a size and no
/// destination. False when memory ran out.
bool fillTessalyTable(RXBlockTable& table, VantricCalibration& record, std::uint64_t numPixels,
                      Wanted wanted);

}  // namespace vantric
