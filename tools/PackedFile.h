// A packed calibration as the command sees it: its blocks in file order, and a read that tells
// which block stopped it, and why.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

#include "calcut/vantric.h"
#include "calcut/vantric_rx.h"
#include "Fault.h"

namespace calcut::tools {

/// A block as it lies in the file.
struct BlockPosition {
    std::uint64_t offset = 0;         ///< of the block header, from the calibration's start
    std::uint64_t payloadOffset = 0;  ///< likewise
    std::uint64_t packedSize = 0;     ///< payload bytes in the file
    RXBlockHeader header{};
    bool known = false;   ///< the reader has a table entry for this id
    bool custom = false;  ///< id 128 or above: skipped as custom block
};

/// The walk over the block headers, without decoding.
struct BlockWalk {
    std::uint32_t headerStatus =
        VANTRIC_OK;  ///< of the file header; nothing else is set on failure
    RXHeader header{};
    std::vector<BlockPosition> blocks;  ///< in file order, up to the end marker or the fault
    std::uint64_t endOffset = 0;        ///< of the end marker, or where the walk had to stop
    bool endMarker = false;             ///< the walk reached it
    std::uint32_t status = VANTRIC_OK;  ///< why the walk stopped when it did not
};
BlockWalk walkBlocks(ByteView calibration);

struct CalibrationDeleter {
    void operator()(VantricCalibration* record) const { vantric_freeCalibration(record); }
};
using CalibrationPtr = std::unique_ptr<VantricCalibration, CalibrationDeleter>;

/// A read with the block that stopped it.
struct CalibrationRead {
    std::uint32_t status = VANTRIC_OK;
    std::uint32_t failedBlockId = 255;  ///< 255: no block
    /// The record, complete with status 0. After a failure it is the partly filled one when there
    /// is one: only what the blocks before the fault carry is set, everything else (counts, lens
    /// parameters, tables) is undefined or at its defaults.
    CalibrationPtr record;
    std::optional<Fault> fault;  ///< set when status is not VANTRIC_OK
};

/// Reads a packed calibration. offset is where it starts in the file (for the fault's offset).
/// Replaces the registered calibration handlers for the time of the call, so no other thread may
/// read calibrations meanwhile.
CalibrationRead readCalibration(ByteView calibration, std::uint64_t offset,
                                bool withPsfAndDirections);

}  // namespace calcut::tools
