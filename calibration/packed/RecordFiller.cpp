#include "calibration/packed/RecordFiller.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <utility>

#include "calibration/calibration.h"
#include "calibration/packed/Compressed.h"
#include "calibration/packed/CopyHooks.h"
#include "calibration/packed/IdTable.h"
#include "calibration/packed/Reader.h"

namespace vantric {

Refusal RecordFiller::begin(const BlockCursor& blocks) {
    const std::uint64_t numPixels = blocks.numPixels();
    const RXHeader& header = blocks.header();
    VantricImagerArea& area = record_.imagerArea;
    // A new record was made for enough pixels; that is the caller's duty. One that was read into
    // has the room of the image it was given then, even if that had no pixels.
    wasRead_ = record_.calibrationType == packedCalibrationType;
    const std::uint64_t room = pixelsOf(area);
    if ((wasRead_ || room != 0) && room < numPixels) {
        return refusedFor(VANTRIC_ERR_BUFFER_TOO_SMALL, Cause::recordTooSmall, columnsOffset, room,
                          numPixels);
    }
    if (area.columns != header.columns || area.rows != header.rows) {
        std::free(std::exchange(record_.directions, nullptr));  // those of another image
    }
    area = {0, 0, header.columns, header.rows};
    record_.version = recordVersion;
    record_.calibrationType = packedCalibrationType;
    scratch_ = Scratch(numPixels);
    if (!scratch_.makeFor(table_)) {
        return refusedFor(VANTRIC_ERR_BUFFER_TOO_SMALL, Cause::outOfMemory, columnsOffset, 0, 0);
    }
    return {};
}

Refusal RecordFiller::fill(const RXTableEntry& entry, const BlockCursor& blocks) {
    const Refusal refusal = validate(entry, blocks);
    if (entry.copy == nullptr) {
        return decode(entry, blocks, refusal);
    }
    return refusal.refused() ? refusal : copy(entry, blocks);
}

Refusal RecordFiller::validate(const RXTableEntry& entry, const BlockCursor& blocks) const {
    const std::uint32_t status = table_.validateBlock(&blocks.block(), entry.expectation);
    if (status == VANTRIC_OK) {
        return {};
    }
    if (!hasExpectation(table_, entry)) {
        return blocks.refuse(status, Cause::wrongContent, 0, 0, 0);
    }
    Refusal refusal = blocks.refuse(status, Cause::wrongKind, kindOffset, entry.expectation->kindA,
                                    blocks.block().kind);
    refusal.alsoExpected = entry.expectation->kindB;
    return refusal;
}

// Decodes straight into the entry's place; where that is null, the block is only checked. The count
// is stored even if the block is refused.
Refusal RecordFiller::decode(const RXTableEntry& entry, const BlockCursor& blocks,
                             Refusal refusal) const {
    const RXBlockHeader& block = blocks.block();
    const std::int32_t minimum = minimumCount(entry.expectedCount, blocks.numPixels());
    if (static_cast<std::int32_t>(block.count) < minimum) {
        refusal = blocks.refuse(VANTRIC_ERR_COUNT_TOO_SMALL, Cause::tooFewElements, countCodeOffset,
                                static_cast<std::uint32_t>(minimum), block.count);
    }
    if (!refusal.refused()) {
        auto* place = static_cast<std::uint8_t*>(entry.destination);
        const std::uint64_t room = entry.destinationSize;
        refusal = blocks.located(
            place == nullptr ? takePayload(blocks.stream(), block, scratch_.size(), room).refusal
                             : decodeBlock(blocks.stream(), block, scratch_.size(), place, room));
    }
    if (entry.countField != nullptr) {
        *entry.countField = static_cast<std::uint8_t>(block.count);
    }
    return refusal;
}

// Decodes to the scratch and calls the entry's copy function. A mask can do without both.
Refusal RecordFiller::copy(const RXTableEntry& entry, const BlockCursor& blocks) {
    const RXBlockHeader& block = blocks.block();
    const bool isMask = entry.copy == copyMask;
    if (isMask && block.kind == RX_KIND_PACKED_UINT && scratch_.usedWords() == 0) {
        return decodeMask(entry, blocks);
    }
    const Refusal refusal = scratch_.decode(blocks.stream(), block);
    if (refusal.refused()) {
        return blocks.located(refusal);
    }
    const std::uint64_t size = vantric_getRXUnpackedBlockSize(&block);
    const std::uint64_t room =
        isMask ? std::min(entry.destinationSize, scratch_.usedWords()) : entry.destinationSize;
    const std::pair psfSize(record_.psfWidth, record_.psfHeight);
    const std::uint32_t status =
        entry.copy(scratch_.data(), size, entry.destination, room, entry.countField);
    const bool isNewProfile = entry.copy == copyStraylight && status == VANTRIC_OK;
    if (isNewProfile || psfSize != std::pair(record_.psfWidth, record_.psfHeight)) {
        std::free(std::exchange(record_.psf, nullptr));  // that of the earlier profile
    }
    if (status != VANTRIC_OK) {
        return blocks.refuse(status, Cause::wrongContent, countCodeOffset, entry.destinationSize,
                             size);
    }
    if (isMask) {
        setMaskTail(entry, room);
    }
    return {};
}

// Gives the same bytes as decoding to words and copying their low bytes.
Refusal RecordFiller::decodeMask(const RXTableEntry& entry, const BlockCursor& blocks) {
    const RXBlockHeader& block = blocks.block();
    const TakenPayload taken = takePayload(
        blocks.stream(), block, scratch_.size() - scratch_.decodedSize(), scratch_.decodedSize());
    if (taken.refusal.refused()) {
        return blocks.located(taken.refusal);
    }
    if (block.count > entry.destinationSize) {
        return blocks.refuse(VANTRIC_ERR_BUFFER_TOO_SMALL, Cause::tooLarge, countCodeOffset,
                             entry.destinationSize, block.count);
    }
    decodePackedLowBytes(taken.payload, taken.size / sizeof(std::uint32_t), block.count, block.bits,
                         static_cast<std::uint8_t*>(entry.destination));
    setMaskTail(entry, block.count);
    return {};
}

void RecordFiller::setMaskTail(const RXTableEntry& entry, std::uint64_t filled) {
    maskTail_.clear();  // of another mask; only a host's table has two
    maskTail_ = {static_cast<std::uint8_t*>(entry.destination) + filled,
                 entry.destinationSize - filled};
    if (wasRead_) {
        maskTail_.clear();
    }
}

void RecordFiller::MaskTail::clear() {
    if (size != 0) {
        std::memset(bytes, 0, static_cast<std::size_t>(std::exchange(size, 0)));
    }
}

}  // namespace vantric
