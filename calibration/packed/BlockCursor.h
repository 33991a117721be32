#pragma once

#include <cstdint>

#include "calibration/packed/Block.h"

namespace vantric {

/// Goes from one block of a stream to the next, and knows where each lies and what to blame.
class BlockCursor {
  public:
    explicit BlockCursor(VantricStream& stream) : stream_(stream) {}

    /// Must be called first.
    Refusal readFileHeader() { return vantric::readFileHeader(stream_, header_); }

    /// Reads the block header at the stream's position.
    Refusal next();

    /// Refuses a block whose id is not above that of the block before.
    Refusal checkOrder();

    [[nodiscard]] bool atEndMarker() const { return block_.id == VANTRIC_RX_END_MARKER; }
    [[nodiscard]] VantricStream& stream() const { return stream_; }
    [[nodiscard]] const RXHeader& header() const { return header_; }
    [[nodiscard]] const RXBlockHeader& block() const { return block_; }
    /// Pixels that the file header claims.
    [[nodiscard]] std::uint64_t numPixels() const {
        return std::uint64_t{header_.columns} * header_.rows;
    }
    [[nodiscard]] std::uint64_t offset() const { return offset_; }
    [[nodiscard]] std::uint64_t payloadOffset() const { return payloadOffset_; }
    [[nodiscard]] std::uint64_t payloadSize() const {
        return vantric_getRXPackedBlockSize(&block_);
    }

    /// A refusal of the block, with a field of its header to blame.
    [[nodiscard]] Refusal refuse(std::uint32_t status, Cause cause, std::uint64_t offsetInHeader,
                                 std::uint64_t expected, std::uint64_t found) const {
        return refusedFor(status, cause, offset_ + offsetInHeader, expected, found);
    }

    /// A refusal of takePayload or decodeBlock, with the place to blame.
    [[nodiscard]] Refusal located(Refusal refusal) const;

  private:
    VantricStream& stream_;
    RXHeader header_ = {};
    RXBlockHeader block_ = {};
    std::uint64_t offset_ = 0;
    std::uint64_t payloadOffset_ = 0;
    std::int32_t previousId_ = -1;
};

}  // namespace vantric
