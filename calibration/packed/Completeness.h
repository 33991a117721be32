#pragma once

#include <cstdint>

#include "calcut/vantric_rx.h"
#include "calibration/packed/Refusal.h"

// Which blocks a calibration must have: the callbacks of the library's own table.

namespace vantric {

/// 1 for a block that opens a frequency record.
int isFrequencyBlock(const RXBlockHeader* block);
/// Counts a block and checks its kind. A kind that is not acceptable fails every later call, too.
std::uint32_t validateBlock(const RXBlockHeader* block, RXBlockExpectation* expectation);
/// Called at the end marker. A refusal writes status and block id to result, unless that is null.
std::uint32_t validateWholeCalibration(const RXBlockTable* table, RXReadResult* result);

/// Why validateWholeCalibration of a table, a host's or this library's, refused a calibration.
/// offset is that of the end marker.
Refusal refusalOfWhole(const RXBlockTable& table, const RXReadResult& result, std::uint64_t offset);

}  // namespace vantric
