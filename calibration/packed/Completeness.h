#pragma once

#include <cstdint>

#include "calcut/vantric_rx.h"
#include "calibration/packed/Refusal.h"

// Which blocks a calibration must have: the callbacks of the table that this library reads with.

namespace vantric {

/// 1 for a block that opens a frequency record.
int isFrequencyBlock(const RXBlockHeader* block);
/// Counts a block and checks its kind; a kind that is not acceptable fails every later call too.
std::uint32_t validateBlock(const RXBlockHeader* block, RXBlockExpectation* expectation);
/// After the end marker. A refusal writes status and block id to result, when there is one.
std::uint32_t validateWholeCalibration(const RXBlockTable* table, RXReadResult* result);

/// What a table's check of the whole calibration, whosever it is, refused it for. offset is that of
/// the end marker.
Refusal refusalOfWhole(const RXBlockTable& table, const RXReadResult& result, std::uint64_t offset);

}  // namespace vantric
