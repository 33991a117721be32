#pragma once

#include <algorithm>
#include <cstdint>
#include <limits>

#include "calibration/memory.h"
#include "calibration/packed/Block.h"
#include "calibration/packed/CopyHooks.h"

namespace vantric {

// Room for the decoded block in front, and for the packed words and integers of it behind. Blocks
// are decoded without the second half, but its size decides which are refused.
constexpr std::uint64_t scratchBytesPerPixel = 12;
constexpr std::uint64_t decodedBytesPerPixel = 4;

/// Where blocks are decoded for copy functions. Memory is allocated when a block first needs it.
class Scratch {
  public:
    explicit Scratch(std::uint64_t numPixels) : numPixels_(numPixels) {}

    /// Prepares for the copy functions of a table. Those of a host may look at what lies behind the
    /// block, as far as their destination's size goes in words, so they get zeros there; where
    /// there is no memory for that many, zeros for the pixels alone. False without memory for
    /// these.
    bool makeFor(const RXBlockTable& table) {
        std::uint64_t words = 0;
        bool isForeign = false;
        for (std::uint64_t i = 0; i < table.count; ++i) {
            const RXTableEntry& entry = table.entries[i];
            if (entry.copy != nullptr) {
                words = std::max(words, entry.destinationSize);
                isForeign = isForeign || !isOwnCopyFunction(entry.copy);
            }
        }
        if (!isForeign) {
            return true;
        }
        if (words > size() / sizeof(std::uint32_t)) {
            constexpr std::uint64_t most =
                std::numeric_limits<std::uint64_t>::max() / sizeof(std::uint32_t);
            bytes_.reset(
                allocateZeroed<std::uint8_t>(std::min(words, most) * sizeof(std::uint32_t)));
        }
        if (!bytes_) {
            bytes_.reset(allocateZeroed<std::uint8_t>(size()));
        }
        return bytes_ != nullptr;
    }

    [[nodiscard]] std::uint64_t size() const { return numPixels_ * scratchBytesPerPixel; }
    [[nodiscard]] std::uint64_t decodedSize() const { return numPixels_ * decodedBytesPerPixel; }
    /// Words in front that hold anything of a block. What lies behind them counts as zero.
    [[nodiscard]] std::uint64_t usedWords() const {
        return (used_ + decodedBytesPerPixel - 1) / decodedBytesPerPixel;
    }
    [[nodiscard]] const std::uint8_t* data() const { return bytes_.get(); }

    Refusal decode(VantricStream& stream, const RXBlockHeader& block) {
        if (!bytes_) {
            bytes_.reset(allocate<std::uint8_t>(size()));
        }
        if (!bytes_) {
            return refusedFor(VANTRIC_ERR_BUFFER_TOO_SMALL, Cause::outOfMemory, 0, 0, 0);
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
