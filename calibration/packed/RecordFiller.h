#pragma once

#include <cstdint>

#include "calibration/packed/BlockCursor.h"
#include "calibration/packed/Scratch.h"

namespace vantric {

/// Decodes the blocks that a table knows into the table's record.
class RecordFiller {
  public:
    explicit RecordFiller(const RXBlockTable& table) : table_(table), record_(*table.context) {}

    /// Gives the record the image of the file header, if it has room for it.
    Refusal begin(const BlockCursor& blocks);

    /// Checks the block at the cursor and decodes it into the entry's place.
    Refusal fill(const RXTableEntry& entry, const BlockCursor& blocks);

    /// After a read that succeeded.
    void finish() { maskTail_.clear(); }

  private:
    // The pixels of a mask behind those of its block. They become zero. In a new record they are,
    // so clearing waits until the read has succeeded: a claim of a huge image costs no time.
    struct MaskTail {
        std::uint8_t* bytes = nullptr;
        std::uint64_t size = 0;

        void clear();
    };

    Refusal validate(const RXTableEntry& entry, const BlockCursor& blocks) const;
    Refusal copy(const RXTableEntry& entry, const BlockCursor& blocks);
    Refusal decodeMask(const RXTableEntry& entry, const BlockCursor& blocks);
    void setMaskTail(const RXTableEntry& entry, std::uint64_t filled);
    Refusal decode(const RXTableEntry& entry, const BlockCursor& blocks, Refusal refusal) const;

    const RXBlockTable& table_;
    VantricCalibration& record_;
    bool wasRead_ = false;  ///< whether the record was read into before
    Scratch scratch_{0};
    MaskTail maskTail_;
};

}  // namespace vantric
