#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdlib>

#include "calibration/packed/BlockCursor.h"
#include "calibration/packed/CalibrationStream.h"

namespace vantric {

/// The custom blocks that a read meets. It only measures them; vantric_readRXCustomData fetches
/// their bytes.
class CustomBlocks {
  public:
    /// Notes the block at the cursor and skips its payload.
    Refusal measure(const BlockCursor& blocks) {
        const std::uint64_t size = blocks.payloadSize();
        const std::uint64_t left = bytesLeft(blocks.stream());
        const bool isThere = FieldReader(blocks.stream()).skip(size);
        if (count_ == sizes_.size()) {
            return blocks.refuse(VANTRIC_ERR_BUFFER_TOO_SMALL, Cause::tooManyCustomBlocks, 0,
                                 sizes_.size(), count_ + 1);
        }
        sizes_[count_] = size;
        ++count_;
        return isThere ? Refusal{}
                       : blocks.located(refusedFor(VANTRIC_ERR_END_OF_DATA, Cause::payloadCutShort,
                                                   0, size, left));
    }

    /// Gives the record as many fields, in place of those of an earlier read.
    void store(VantricCalibration& record, std::uint8_t firstId) const {
        record.customFieldCount = static_cast<std::uint8_t>(count_);
        record.firstCustomFieldId = firstId;
        for (std::size_t i = 0; i < sizes_.size(); ++i) {
            VantricCustomField& field = record.customFields[i];
            std::free(field.data);
            field = {nullptr, static_cast<std::uint8_t>(sizes_[i])};
        }
    }

  private:
    std::array<std::uint64_t, VANTRIC_CUSTOM_FIELDS> sizes_ = {};
    std::size_t count_ = 0;
};

}  // namespace vantric
