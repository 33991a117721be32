#pragma once

// The walk over the blocks, and the interface of whoever watches it.
#include <cstdint>

#include "calcut/vantric_rx.h"
#include "calibration/packed/Refusal.h"

namespace vantric {

/// Type code of the calibrations of this format.
constexpr std::uint16_t packedCalibrationType = 3;

/// failedBlockId of a read in which no block is to blame.
constexpr std::uint32_t noFailedBlock = 255;

enum class BlockOutcome : std::uint8_t {
    read,       ///< decoded into the record
    custom,     ///< measured and skipped
    unknown,    ///< id below 128 without an entry: the next header is read behind this header
    failed,     ///< the walk stopped here
    notReached  ///< behind the block that stopped the walk
};

/// A block as the walk met it. Offsets count from the start of the stream's data.
struct BlockSighting {
    RXBlockHeader header;
    std::uint64_t offset;
    std::uint64_t payloadOffset;
    std::uint64_t payloadSize;
    BlockOutcome outcome;
};

/// Watches a walk. Blocks are reported in the order of the file, also those behind a block that
/// stopped the walk, as far as their headers can be read.
class WalkObserver {
  public:
    WalkObserver() = default;
    WalkObserver(const WalkObserver&) = delete;
    WalkObserver& operator=(const WalkObserver&) = delete;

    virtual void block(const BlockSighting& block) = 0;
    virtual void endMarker(std::uint64_t offset) = 0;
    /// Called at most once. blockId is noFailedBlock where no block is to blame. A PSF that cannot
    /// be made names the straylight block and the offset 0.
    virtual void refused(const Refusal& refusal, std::uint32_t blockId) = 0;

  protected:
    ~WalkObserver() = default;
};

/// vantric_readRXCalibration, watched by observer (null: nobody). Does not free the table.
RXReadResult readBlocks(VantricStream& stream, const RXBlockTable* table, WalkObserver* observer);

}  // namespace vantric
