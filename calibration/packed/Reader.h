#pragma once

// The walk over the blocks: what is wanted of it, and who may watch it. The exported functions are
// declared in the public header.
#include <cstddef>
#include <cstdint>

#include "calcut/vantric_rx.h"
#include "calibration/owners.h"
#include "calibration/packed/Refusal.h"

namespace vantric {

/// Type code of the calibrations of this format.
constexpr std::uint16_t packedCalibrationType = 3;

/// failedBlockId of a read in which no block is to blame.
constexpr std::uint32_t noFailedBlock = 255;

/// What a reader wants of a calibration. The status is the same for either.
enum class Wanted : std::uint8_t {
    everything,
    /// All but the per-pixel tables, directions and PSF, which are checked and neither allocated
    /// nor computed.
    cut
};

enum class BlockOutcome : std::uint8_t {
    read,       ///< decoded into the record
    custom,     ///< measured and skipped
    unknown,    ///< id below 128 without an entry: the next header is read right behind this one
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

/// Watches a walk. Blocks come in the order of the file; those behind the one that stopped the walk
/// are told too, as far as their headers can be read.
class WalkObserver {
  public:
    WalkObserver() = default;
    WalkObserver(const WalkObserver&) = delete;
    WalkObserver& operator=(const WalkObserver&) = delete;

    virtual void fileHeader(const RXHeader& header) = 0;
    virtual void block(const BlockSighting& block) = 0;
    virtual void endMarker(std::uint64_t offset) = 0;
    /// At most once, by whoever refused. blockId is noFailedBlock where no block is to blame.
    virtual void refused(const Refusal& refusal, std::uint32_t blockId) = 0;

  protected:
    ~WalkObserver() = default;
};

/// A read of a packed calibration outside of the registry, told to observer (null: nobody).
struct PackedRead {
    RXReadResult result;
    /// Filled as far as the read came; null only when the header was refused, or when the data are
    /// so much shorter than the claimed image that no read can succeed (then no record is made).
    RecordOwner record;
};

/// Status and side effects of vantric_readCalibration with the library's own handler, except that
/// the record is handed out after a failure too. With Wanted::cut the record has neither tables
/// (pixelValues and pixelTable are null) nor directions nor psf.
PackedRead readPacked(const std::uint8_t* data, std::size_t size, Wanted wanted,
                      WalkObserver* observer);

}  // namespace vantric
