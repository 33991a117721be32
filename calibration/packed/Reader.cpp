#include "calibration/packed/Reader.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <cstring>
#include <utility>

#include "calibration/calibration.h"
#include "calibration/memory.h"
#include "calibration/owners.h"
#include "calibration/packed/Block.h"
#include "calibration/packed/CalibrationStream.h"
#include "calibration/packed/Completeness.h"
#include "calibration/packed/Compressed.h"
#include "calibration/packed/CopyHooks.h"
#include "calibration/packed/IdTable.h"
#include "calibration/packed/Scratch.h"
#include "calibration/packed/Teller.h"

namespace vantric {

namespace {

// The walk that fills a record.
class Walk {
  public:
    Walk(VantricStream& stream, const RXBlockTable& table, WalkObserver* observer)
        : stream_(stream), table_(table), record_(*table.context), tell_(observer) {}

    RXReadResult run() {
        Refusal refusal = begin();
        std::int32_t previousId = -1;
        while (!refusal.refused()) {
            offset_ = stream_.position;
            refusal = readBlockHeader(stream_, header_, block_);
            if (refusal.refused() || block_.id == VANTRIC_RX_END_MARKER) {
                break;
            }
            payloadOffset_ = stream_.position;
            const auto id = static_cast<std::int32_t>(block_.id);
            outcome_ = BlockOutcome::read;
            refusal = id > previousId ? readBlock()
                                      : refuse(VANTRIC_ERR_INVALID_DATA, Cause::idsNotAscending, 0,
                                               static_cast<std::uint64_t>(previousId), block_.id);
            previousId = id;
            if (refusal.refused()) {
                return endedBy(refusal, block_.id);
            }
            tellBlock();
        }
        return refusal.refused() ? endedBy(refusal, noFailedBlock) : finish();
    }

  private:
    Refusal begin() {
        Refusal refusal = readFileHeader(stream_, header_);
        if (refusal.refused()) {
            return refusal;
        }
        numPixels_ = std::uint64_t{header_.columns} * header_.rows;
        scratch_ = Scratch(numPixels_);
        VantricImagerArea& area = record_.imagerArea;
        // For a new record the caller vouches; one that was read into has the room of its image,
        // also when that was empty.
        wasRead_ = record_.calibrationType == packedCalibrationType;
        const std::uint64_t room = pixelsOf(area);
        if ((wasRead_ || room != 0) && room < numPixels_) {
            return refuse(VANTRIC_ERR_BUFFER_TOO_SMALL, Cause::recordTooSmall, columnsOffset, room,
                          numPixels_);
        }
        if (area.columns != header_.columns || area.rows != header_.rows) {
            std::free(std::exchange(record_.directions, nullptr));  // those of another image
        }
        area = {0, 0, header_.columns, header_.rows};
        record_.version = recordVersion;
        record_.calibrationType = packedCalibrationType;
        if (!scratch_.makeZeroed(zeroedScratchOf(table_))) {
            return refuse(VANTRIC_ERR_BUFFER_TOO_SMALL, Cause::outOfMemory, columnsOffset, 0, 0);
        }
        return {};
    }

    Refusal readBlock() {
        const RXTableEntry* entry =
            vantric_findRXTableEntry(static_cast<std::uint8_t>(block_.id), &table_);
        if (entry == nullptr) {
            if (block_.id >= table_.firstCustomBlockId) {
                return measureCustomBlock();
            }
            // The payload is not skipped: the format has no such blocks.
            outcome_ = BlockOutcome::unknown;
            return {};
        }
        Refusal refusal = validate(*entry);
        const bool isFrequency = table_.isFrequencyBlock(&block_) != 0;
        if (entry->copy != nullptr) {
            refusal = refusal.refused() ? refusal : copyBlock(*entry, needsOf(entry->copy));
        } else {
            refusal = placeBlock(*entry, refusal);
        }
        if (!refusal.refused() && isFrequency) {
            ++frequencyBlockCount_;
        }
        return refusal;
    }

    Refusal validate(const RXTableEntry& entry) {
        const std::uint32_t status = table_.validateBlock(&block_, entry.expectation);
        if (status == VANTRIC_OK) {
            return {};
        }
        Refusal refusal = refuse(status, Cause::wrongContent, 0, 0, 0);
        if (hasExpectation(table_, entry)) {
            refusal =
                refuse(status, Cause::wrongKind, kindOffset, entry.expectation->kindA, block_.kind);
            refusal.alsoExpected = entry.expectation->kindB;
        }
        return refusal;
    }

    // Through the scratch and the entry's copy function, or past both.
    Refusal copyBlock(const RXTableEntry& entry, const CopyNeeds& needs) {
        if (needs.fillsMask && block_.kind == RX_KIND_PACKED_UINT && scratch_.usedWords() == 0) {
            return decodeMask(entry);
        }
        const Refusal refusal = scratch_.decode(stream_, block_);
        if (refusal.refused()) {
            return located(refusal);
        }
        const std::uint64_t size = vantric_getRXUnpackedBlockSize(&block_);
        std::uint64_t room = entry.destinationSize;
        if (needs.fillsMask) {
            room = std::min(room, scratch_.usedWords());
        }
        const std::pair psfSize(record_.psfWidth, record_.psfHeight);
        const std::uint32_t status =
            entry.copy(scratch_.data(), size, entry.destination, room, entry.countField);
        const bool isNewProfile = needs.endsPsf && status == VANTRIC_OK;
        if (isNewProfile || psfSize != std::pair(record_.psfWidth, record_.psfHeight)) {
            std::free(std::exchange(record_.psf, nullptr));
        }
        if (status != VANTRIC_OK) {
            return refuse(status, Cause::wrongContent, countCodeOffset, entry.destinationSize,
                          size);
        }
        if (needs.fillsMask) {
            fillMask(entry, room);
        }
        return {};
    }

    // What decoding to words and copying their low bytes gives.
    Refusal decodeMask(const RXTableEntry& entry) {
        const TakenPayload taken = takePayload(
            stream_, block_, scratch_.size() - scratch_.decodedSize(), scratch_.decodedSize());
        if (taken.refusal.refused()) {
            return located(taken.refusal);
        }
        if (block_.count > entry.destinationSize) {
            return refuse(VANTRIC_ERR_BUFFER_TOO_SMALL, Cause::tooLarge, countCodeOffset,
                          entry.destinationSize, block_.count);
        }
        decodePackedLowBytes(taken.payload, taken.size / sizeof(std::uint32_t), block_.count,
                             block_.bits, static_cast<std::uint8_t*>(entry.destination));
        fillMask(entry, block_.count);
        return {};
    }

    // A mask fills its whole destination, whatever the block brought: the rest is zero. In a new
    // record it is that already, so that a header that claims a huge image costs nothing.
    void fillMask(const RXTableEntry& entry, std::uint64_t filled) {
        clearMaskTail();  // of another mask; only a host's table has two
        maskTail_ = static_cast<std::uint8_t*>(entry.destination) + filled;
        maskTailSize_ = entry.destinationSize - filled;
        if (wasRead_) {
            clearMaskTail();
        }
    }

    void clearMaskTail() {
        if (maskTailSize_ != 0) {
            std::memset(maskTail_, 0, static_cast<std::size_t>(std::exchange(maskTailSize_, 0)));
        }
    }

    // Straight into its place. A place without memory behind it is only checked for.
    Refusal placeBlock(const RXTableEntry& entry, Refusal refusal) {
        const std::int32_t minimum = minimumCount(entry.expectedCount, numPixels_);
        if (static_cast<std::int32_t>(block_.count) < minimum) {
            refusal = refuse(VANTRIC_ERR_COUNT_TOO_SMALL, Cause::tooFewElements, countCodeOffset,
                             static_cast<std::uint32_t>(minimum), block_.count);
        }
        if (!refusal.refused()) {
            refusal = located(
                entry.destination == nullptr
                    ? takePayload(stream_, block_, scratch_.size(), entry.destinationSize).refusal
                    : decodeBlock(stream_, block_, scratch_.size(),
                                  static_cast<std::uint8_t*>(entry.destination),
                                  entry.destinationSize));
        }
        if (entry.countField != nullptr) {
            *entry.countField = static_cast<std::uint8_t>(block_.count);
        }
        return refusal;
    }

    Refusal measureCustomBlock() {
        outcome_ = BlockOutcome::custom;
        const std::uint64_t size = vantric_getRXPackedBlockSize(&block_);
        const std::uint64_t left = bytesLeft(stream_);
        const std::uint32_t status = vantric_canRead(&stream_, size);
        stream_.position += size;
        if (customBlockCount_ == customBlockSizes_.size()) {
            return refuse(VANTRIC_ERR_BUFFER_TOO_SMALL, Cause::tooManyCustomBlocks, 0,
                          customBlockSizes_.size(), customBlockCount_ + 1);
        }
        customBlockSizes_[customBlockCount_] = size;
        ++customBlockCount_;
        return status == VANTRIC_OK
                   ? Refusal{}
                   : located({status, Cause::payloadCutShort, 0, size, left, size});
    }

    RXReadResult finish() {
        tell_.endMarker(offset_);
        RXReadResult result = {VANTRIC_OK, noFailedBlock};
        result.status = table_.validateWholeCalibration(&table_, &result);
        if (result.status == VANTRIC_OK) {
            clearMaskTail();
            storeCounts();
        } else if (tell_.isHeard()) {
            tell_.refused(refusalOfWhole(table_, result, offset_), result.failedBlockId);
        }
        return result;
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

    [[nodiscard]] Refusal refuse(std::uint32_t status, Cause cause, std::uint64_t offsetInHeader,
                                 std::uint64_t expected, std::uint64_t found) const {
        return {status, cause, offset_ + offsetInHeader, expected, found, expected};
    }

    // A refusal of the payload, with the place in the header that is to blame.
    [[nodiscard]] Refusal located(Refusal refusal) const {
        switch (refusal.cause) {
            case Cause::payloadCutShort:
                refusal.offset = payloadOffset_;
                break;
            case Cause::wrongBits:
                refusal.offset =
                    payloadOffset_ - bitsSize -
                    (block_.kind == RX_KIND_PACKED_FLOAT ? fixedPointSize : std::uint64_t{0});
                break;
            default:
                refusal.offset = offset_ + countCodeOffset;
                break;
        }
        return refusal;
    }

    void tellBlock() const {
        tell_.block(
            {block_, offset_, payloadOffset_, vantric_getRXPackedBlockSize(&block_), outcome_});
    }

    RXReadResult endedBy(const Refusal& refusal, std::uint32_t blockId) {
        if (blockId != noFailedBlock) {
            outcome_ = BlockOutcome::failed;
            tellBlock();
        }
        tell_.refused(refusal, blockId);
        if (blockId != noFailedBlock && tell_.isHeard()) {
            tellRest();
        }
        return {refusal.status, blockId};
    }

    // The blocks behind the one that stopped the walk.
    void tellRest() {
        outcome_ = BlockOutcome::notReached;
        stream_.position = payloadOffset_ + vantric_getRXPackedBlockSize(&block_);
        for (;;) {
            offset_ = stream_.position;
            if (readBlockHeader(stream_, header_, block_).refused()) {
                return;
            }
            if (block_.id == VANTRIC_RX_END_MARKER) {
                tell_.endMarker(offset_);
                return;
            }
            payloadOffset_ = stream_.position;
            tellBlock();
            stream_.position += vantric_getRXPackedBlockSize(&block_);
        }
    }

    VantricStream& stream_;
    const RXBlockTable& table_;
    VantricCalibration& record_;
    Teller tell_;
    RXHeader header_ = {};
    RXBlockHeader block_ = {};
    std::uint64_t offset_ = 0, payloadOffset_ = 0;  // of the block's header and payload
    BlockOutcome outcome_ = BlockOutcome::read;
    std::uint64_t numPixels_ = 0;
    bool wasRead_ = false;
    Scratch scratch_{0};
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

}  // namespace

RXReadResult readBlocks(VantricStream& stream, const RXBlockTable& table, WalkObserver* observer) {
    return usable(table) ? Walk(stream, table, observer).run()
                         : RXReadResult{VANTRIC_ERR_INVALID_ARGUMENT, noFailedBlock};
}

}  // namespace vantric

using namespace vantric;

RXReadResult vantric_readRXCalibration(VantricStream* stream, RXBlockTable* table) {
    const TableOwner owned(table);
    if (table == nullptr) {
        return {VANTRIC_ERR_BUFFER_TOO_SMALL, noFailedBlock};
    }
    return readBlocks(*stream, *table, nullptr);
}
