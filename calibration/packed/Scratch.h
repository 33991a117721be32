#pragma once

#include <algorithm>
#include <cstdint>
#include <limits>

#include "calibration/memory.h"
#include "calibration/packed/Block.h"
#include "calibration/packed/CopyHooks.h"

namespace vantric {

// In front the decoded block, behind it room for packed words and integers. Decoding does not use
// that room, but its size decides which blocks are refused.
constexpr std::uint64_t scratchBytesPerPixel = 12;
constexpr std::uint64_t decodedBytesPerPixel = 4;

/// Where blocks are decoded for copy functions. Memory is allocated when a block first needs it.
class Scratch {
  public:
    explicit Scratch(std::uint64_t numPixels) : numPixels_(numPixels) {}

    /// Prepares for the copy functions of a table. A host's may copy a word to each entry of its
    /// destination, whatever the size of the block, so it gets zeros behind the block: as many
    /// words as the largest destination has entries, or, without memory for these, as the scratch
    /// has. False without memory for the scratch.
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
    /// Words in front into which blocks were decoded. The words behind them count as zero.
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
