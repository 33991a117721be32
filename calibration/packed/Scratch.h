#pragma once

#include <algorithm>
#include <cstdint>

#include "calibration/memory.h"
#include "calibration/packed/Block.h"

namespace vantric {

// Room for the decoded block in front, and for the packed words and integers of it behind. Blocks
// are decoded without the second half, but its size decides which are refused.
constexpr std::uint64_t scratchBytesPerPixel = 12;
constexpr std::uint64_t decodedBytesPerPixel = 4;

/// The scratch of one walk, allocated when a block first needs it. What lies behind the blocks that
/// were decoded into it counts as zero.
class Scratch {
  public:
    explicit Scratch(std::uint64_t numPixels) : numPixels_(numPixels) {}

    /// Makes it now, of so many bytes at least, filled with zeros, unless none are asked for; false
    /// without memory.
    bool makeZeroed(std::uint64_t atLeast) {
        if (atLeast != 0) {
            bytes_.reset(allocateZeroed<std::uint8_t>(std::max(size(), atLeast)));
        }
        return atLeast == 0 || bytes_ != nullptr;
    }

    [[nodiscard]] std::uint64_t size() const { return numPixels_ * scratchBytesPerPixel; }
    [[nodiscard]] std::uint64_t decodedSize() const { return numPixels_ * decodedBytesPerPixel; }
    /// Words in front that hold anything of a block.
    [[nodiscard]] std::uint64_t usedWords() const {
        return (used_ + decodedBytesPerPixel - 1) / decodedBytesPerPixel;
    }
    [[nodiscard]] const std::uint8_t* data() const { return bytes_.get(); }

    Refusal decode(VantricStream& stream, const RXBlockHeader& block) {
        if (!bytes_) {
            bytes_.reset(allocate<std::uint8_t>(size()));
        }
        if (!bytes_) {
            return {VANTRIC_ERR_BUFFER_TOO_SMALL, Cause::outOfMemory, 0, 0, 0, 0};
        }
        const Refusal refusal =
            decodeBlock(stream, block, size() - decodedSize(), bytes_.get(), decodedSize());
        if (!refusal.refused()) {
            used_ = std::max(used_, vantric_getRXUnpackedBlockSize(&block));
        }
        return refusal;
    }

  private:
    std::uint64_t numPixels_;
    Owned<std::uint8_t> bytes_;
    std::uint64_t used_ = 0;
};

}  // namespace vantric
