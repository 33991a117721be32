#include "calibration/packed/Reader.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <memory>
#include <utility>

#include "calibration/calibration.h"
#include "calibration/memory.h"
#include "calibration/packed/Block.h"
#include "calibration/packed/CalibrationStream.h"
#include "calibration/packed/IdTable.h"
#include "calibration/packed/Tessaly.h"

using namespace vantric;

namespace {

// Room for the decoded block in front, and for the packed words and integers of it behind.
constexpr std::uint64_t scratchBytesPerPixel = 12;
constexpr std::uint64_t decodedBytesPerPixel = 4;

struct TableRelease {
    void operator()(RXBlockTable* table) const { vantric_freeRXTable(table); }
};

// The walk that fills a record.
class BlockWalk {
  public:
    BlockWalk(VantricStream& stream, const RXBlockTable& table)
        : stream_(stream), table_(table), record_(*table.context) {}

    RXReadResult run() {
        RXReadResult result = {VANTRIC_OK, noFailedBlock};
        result.status = begin();
        if (result.status != VANTRIC_OK) {
            return result;
        }
        std::int32_t previousId = -1;
        for (;;) {
            result.status = vantric_readRXBlockHeader(&stream_, &header_, &block_);
            if (result.status != VANTRIC_OK) {
                return result;
            }
            if (block_.id == VANTRIC_RX_END_MARKER) {
                break;
            }
            const auto id = static_cast<std::int32_t>(block_.id);
            result.status = id > previousId ? readBlock() : VANTRIC_ERR_INVALID_DATA;
            if (result.status != VANTRIC_OK) {
                result.failedBlockId = block_.id;
                return result;
            }
            previousId = id;
        }
        const std::uint32_t status = table_.validateWholeCalibration(&table_, &result);
        if (status == VANTRIC_OK) {
            clearMaskTail();
            storeCounts();
        }
        result.status = status;
        return result;
    }

  private:
    std::uint32_t begin() {
        const std::uint32_t status = vantric_readRXHeader(&stream_, &header_);
        if (status != VANTRIC_OK) {
            return status;
        }
        numPixels_ = std::uint64_t{header_.columns} * header_.rows;
        // A record that was read before has the room of that image; a new one has no image yet.
        const VantricImagerArea& area = record_.imagerArea;
        const std::uint64_t room = std::uint64_t{area.columns} * area.rows;
        if (room != 0 && room < numPixels_) {
            return VANTRIC_ERR_BUFFER_TOO_SMALL;
        }
        scratchSize_ = numPixels_ * scratchBytesPerPixel;
        scratch_.reset(allocate<std::uint8_t>(scratchSize_));
        record_.imagerArea = {0, 0, header_.columns, header_.rows};
        record_.version = recordVersion;
        record_.calibrationType = packedCalibrationType;
        return scratch_ ? VANTRIC_OK : VANTRIC_ERR_BUFFER_TOO_SMALL;
    }

    std::uint32_t readBlock() {
        const RXTableEntry* entry =
            vantric_findRXTableEntry(static_cast<std::uint8_t>(block_.id), &table_);
        if (entry == nullptr) {
            // Below the custom ids the payload is not skipped: the format has no such blocks.
            return block_.id >= table_.firstCustomBlockId ? measureCustomBlock() : VANTRIC_OK;
        }
        std::uint32_t status = table_.validateBlock(&block_, entry->expectation);
        status = entry->copy != nullptr ? copyBlock(*entry, status) : placeBlock(*entry, status);
        if (status == VANTRIC_OK && table_.isFrequencyBlock(&block_) != 0) {
            ++frequencyBlockCount_;
        }
        return status;
    }

    // Through the scratch and the entry's copy function.
    std::uint32_t copyBlock(const RXTableEntry& entry, std::uint32_t status) {
        const std::uint64_t decodedSize = numPixels_ * decodedBytesPerPixel;
        if (status == VANTRIC_OK) {
            status = vantric_decodeRXBlock(&stream_, &block_, scratch_.get() + decodedSize,
                                           scratchSize_ - decodedSize, scratch_.get(), decodedSize);
        }
        if (status != VANTRIC_OK) {
            return status;
        }
        const std::uint64_t size = vantric_getRXUnpackedBlockSize(&block_);
        decodedEnd_ = std::max(decodedEnd_, size);
        if (entry.copy == copyMask) {
            return copyMaskBlock(entry, size);
        }
        status = entry.copy(scratch_.get(), size, entry.destination, entry.destinationSize,
                            entry.countField);
        if (status == VANTRIC_OK && entry.copy == copyStraylight) {
            // Of an earlier read; the size that came now may be another.
            std::free(std::exchange(record_.psf, nullptr));
        }
        return status;
    }

    // A mask fills its whole destination, whatever the block brought. Nothing was decoded to the
    // scratch for the rest: it becomes zero once the calibration has turned out to be complete, so
    // that a header that claims a huge image costs nothing.
    std::uint32_t copyMaskBlock(const RXTableEntry& entry, std::uint64_t size) {
        const std::uint64_t decodedWords =
            (decodedEnd_ + decodedBytesPerPixel - 1) / decodedBytesPerPixel;
        const std::uint64_t filled = std::min(entry.destinationSize, decodedWords);
        const std::uint32_t status =
            copyMask(scratch_.get(), size, entry.destination, filled, entry.countField);
        if (status == VANTRIC_OK) {
            clearMaskTail();  // of another mask; only a host's table has two
            maskTail_ = static_cast<std::uint8_t*>(entry.destination) + filled;
            maskTailSize_ = entry.destinationSize - filled;
        }
        return status;
    }

    void clearMaskTail() const {
        if (maskTailSize_ != 0) {
            std::memset(maskTail_, 0, static_cast<std::size_t>(maskTailSize_));
        }
    }

    // Straight into its place.
    std::uint32_t placeBlock(const RXTableEntry& entry, std::uint32_t status) {
        if (static_cast<std::int32_t>(block_.count) < minimumCount(entry.expectedCount)) {
            status = VANTRIC_ERR_COUNT_TOO_SMALL;
        }
        if (status == VANTRIC_OK) {
            status = vantric_decodeRXBlock(&stream_, &block_, scratch_.get(), scratchSize_,
                                           static_cast<std::uint8_t*>(entry.destination),
                                           entry.destinationSize);
        }
        if (entry.countField != nullptr) {
            *entry.countField = static_cast<std::uint8_t>(block_.count);
        }
        return status;
    }

    [[nodiscard]] std::int32_t minimumCount(std::int32_t expectedCount) const {
        const auto pixels = static_cast<std::uint32_t>(numPixels_);
        if (expectedCount < 0) {
            return std::numeric_limits<std::int32_t>::min();  // counts are compared as signed too
        }
        if (expectedCount == perPixelCount) {
            return static_cast<std::int32_t>(pixels);
        }
        if (expectedCount >= firstLiteralCount && expectedCount <= lastLiteralCount) {
            return expectedCount;
        }
        return static_cast<std::int32_t>(
            pixels * static_cast<std::uint32_t>(expectedCount - lastLiteralCount));
    }

    std::uint32_t measureCustomBlock() {
        const std::uint64_t size = vantric_getRXPackedBlockSize(&block_);
        const std::uint32_t status = vantric_canRead(&stream_, size);
        stream_.position += size;
        if (customBlockCount_ == customBlockSizes_.size()) {
            return VANTRIC_ERR_BUFFER_TOO_SMALL;
        }
        customBlockSizes_[customBlockCount_] = size;
        ++customBlockCount_;
        return status;
    }

    void storeCounts() {
        record_.frequencyCount = frequencyBlockCount_;
        record_.customFieldCount = static_cast<std::uint8_t>(customBlockCount_);
        record_.firstCustomFieldId = table_.firstCustomBlockId;
        for (std::size_t i = 0; i < customBlockSizes_.size(); ++i) {
            VantricCustomField& field = record_.customFields[i];
            std::free(field.data);  // of an earlier read into this record
            field = {nullptr, static_cast<std::uint8_t>(customBlockSizes_[i])};
        }
    }

    VantricStream& stream_;
    const RXBlockTable& table_;
    VantricCalibration& record_;
    RXHeader header_ = {};
    RXBlockHeader block_ = {};
    std::uint64_t numPixels_ = 0;
    Owned<std::uint8_t> scratch_;
    std::uint64_t scratchSize_ = 0;
    std::uint64_t decodedEnd_ = 0;  // in the scratch; nothing was written behind it
    std::uint8_t* maskTail_ = nullptr;
    std::uint64_t maskTailSize_ = 0;
    std::uint8_t frequencyBlockCount_ = 0;
    std::size_t customBlockCount_ = 0;
    std::array<std::uint64_t, VANTRIC_CUSTOM_FIELDS> customBlockSizes_ = {};
};

bool usable(const RXBlockTable& table) {
    return table.context != nullptr && table.isFrequencyBlock != nullptr &&
           table.validateBlock != nullptr && table.validateWholeCalibration != nullptr;
}

// The custom field of a block, also one that is not in use (no block fits into it), or null.
const VantricCustomField* customFieldOf(std::uint32_t id, const VantricCalibration& record) {
    const std::uint32_t index = id - record.firstCustomFieldId;
    return index < VANTRIC_CUSTOM_FIELDS ? record.customFields + index : nullptr;
}

std::uint32_t readCustomBlock(VantricStream& stream, const RXBlockHeader& block,
                              const VantricCalibration& record) {
    const VantricCustomField* field = customFieldOf(block.id, record);
    if (field == nullptr) {
        return VANTRIC_ERR_INVALID_DATA;
    }
    return vantric_decodeRXBlock(&stream, &block, nullptr, 0, field->data,
                                 field->data == nullptr ? 0 : field->size);
}

std::uint32_t skipBlock(VantricStream& stream, const RXBlockHeader& block) {
    const std::uint64_t size = vantric_getRXPackedBlockSize(&block);
    const std::uint32_t status = vantric_canRead(&stream, size);
    stream.position += size;
    return status;
}

}  // namespace

RXReadResult vantric_readRXCalibration(VantricStream* stream, RXBlockTable* table) {
    const std::unique_ptr<RXBlockTable, TableRelease> owned(table);
    if (table == nullptr) {
        return {VANTRIC_ERR_BUFFER_TOO_SMALL, noFailedBlock};
    }
    if (!usable(*table)) {
        return {VANTRIC_ERR_INVALID_ARGUMENT, noFailedBlock};
    }
    return BlockWalk(*stream, *table).run();
}

uint32_t vantric_readRXCustomData(VantricStream* stream, VantricCalibration* calibration) {
    RXHeader header = {};
    std::uint32_t status = vantric_readRXHeader(stream, &header);
    RXBlockHeader block = {};
    std::int32_t previousId = -1;
    while (status == VANTRIC_OK) {
        status = vantric_readRXBlockHeader(stream, &header, &block);
        if (status != VANTRIC_OK || block.id == VANTRIC_RX_END_MARKER) {
            break;
        }
        const auto id = static_cast<std::int32_t>(block.id);
        if (id <= previousId) {
            return VANTRIC_ERR_INVALID_DATA;
        }
        previousId = id;
        status = block.id >= calibration->firstCustomFieldId
                     ? readCustomBlock(*stream, block, *calibration)
                     : skipBlock(*stream, block);
    }
    return status;
}
