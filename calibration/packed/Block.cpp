#include "calibration/packed/Block.h"

#include <cstring>

#include "calibration/packed/CalibrationStream.h"
#include "calibration/packed/Compressed.h"
#include "calibration/packed/Uncompressed.h"

namespace vantric {

namespace {

Refusal cutShort(const VantricStream& stream, Cause cause, std::uint64_t needed) {
    return {VANTRIC_ERR_END_OF_DATA, cause, stream.position, needed, bytesLeft(stream), needed};
}

Refusal refusedFor(std::uint32_t status, Cause cause, std::uint64_t expected, std::uint64_t found) {
    return {status, cause, 0, expected, found, expected};
}

std::uint32_t countOf(std::uint8_t code, const RXHeader& header) {
    const std::uint32_t pixels = std::uint32_t{header.columns} * header.rows;
    if (code == perPixelCode) {
        return pixels;
    }
    if (code < longCountCode) {
        return code;
    }
    return pixels * static_cast<std::uint32_t>(code - perPixelFactorBase);
}

std::uint8_t takeByte(VantricStream& stream) {
    const std::uint8_t byte = *cursorOf(stream);
    ++stream.position;
    return byte;
}

// The byte at the cursor, or 0 behind the end; the cursor moves in either case. No check stands
// before the bits byte of a long count, and truncated input keeps its statuses that way.
std::uint8_t takeUncheckedByte(VantricStream& stream) {
    const std::uint8_t byte = vantric_canRead(&stream, 1) == VANTRIC_OK ? *cursorOf(stream) : 0;
    ++stream.position;
    return byte;
}

// From the bits byte on, which only the packed kinds have.
Refusal readPacking(VantricStream& stream, RXBlockHeader& block) {
    block.bits = takeUncheckedByte(stream);
    if (block.kind == RX_KIND_PACKED_UINT) {
        return {};
    }
    if (vantric_canRead(&stream, fixedPointSize) != VANTRIC_OK) {
        return cutShort(stream, Cause::blockHeaderCutShort, fixedPointSize);
    }
    vantric_fromRXFloat(cursorOf(stream), &block.scale);
    stream.position += fixedPointSize / 2;
    vantric_fromRXFloat(cursorOf(stream), &block.offset);
    stream.position += fixedPointSize / 2;
    return {};
}

std::uint32_t decodeUnpacked(const std::uint8_t* payload, const RXBlockHeader& block,
                             std::uint8_t* dest) {
    switch (block.kind) {
        case RX_KIND_RAW:
            if (block.count != 0) {
                std::memcpy(dest, payload, block.count);
            }
            return VANTRIC_OK;
        case RX_KIND_UINT16:
            decodeRXUint16s(payload, block.count, dest);
            return VANTRIC_OK;
        case RX_KIND_UINT32:
        case RX_KIND_INT32:
            decodeRXUint32s(payload, block.count, dest);
            return VANTRIC_OK;
        case RX_KIND_FLOAT:
            decodeRXFloats(payload, block.count, dest);
            return VANTRIC_OK;
        default:
            return VANTRIC_ERR_ALREADY_SET;
    }
}

std::uint32_t decodePacked(const TakenPayload& taken, const RXBlockHeader& block,
                           std::uint8_t* dest) {
    const std::uint64_t words = taken.size / sizeof(std::uint32_t);
    if (block.kind == RX_KIND_PACKED_UINT) {
        return decodePackedUints(taken.payload, words, block.count, block.bits, dest);
    }
    return decodePackedFloats(taken.payload, words, block.count, block.bits, block.scale,
                              block.offset, dest);
}

}  // namespace

Refusal readFileHeader(VantricStream& stream, RXHeader& header) {
    constexpr std::uint64_t restSize = fileHeaderSize - packedMagic.size();
    const Refusal tooShort = cutShort(stream, Cause::headerCutShort, fileHeaderSize);
    if (vantric_canRead(&stream, packedMagic.size()) != VANTRIC_OK) {
        return tooShort;
    }
    const std::uint8_t* start = cursorOf(stream);
    if (std::memcmp(start, packedMagic.data(), packedMagic.size()) != 0) {
        return {VANTRIC_ERR_NOT_SUPPORTED, Cause::wrongMagic, stream.position, 0, 0, 0};
    }
    stream.position += packedMagic.size();
    if (vantric_canRead(&stream, restSize) != VANTRIC_OK) {
        return tooShort;
    }
    header.version = start[versionOffset];
    header.columns = bigEndian16(start + columnsOffset);
    header.rows = bigEndian16(start + rowsOffset);
    stream.position += restSize;
    return {};
}

Refusal readBlockHeader(VantricStream& stream, const RXHeader& header, RXBlockHeader& block) {
    if (vantric_canRead(&stream, idSize) != VANTRIC_OK) {
        return cutShort(stream, Cause::blockHeaderCutShort, idSize);
    }
    block.id = takeByte(stream);
    if (block.id == VANTRIC_RX_END_MARKER) {
        return {};
    }
    constexpr std::uint64_t checkedSize = kindSize + countCodeSize + bitsSize;
    if (vantric_canRead(&stream, checkedSize) != VANTRIC_OK) {
        return cutShort(stream, Cause::blockHeaderCutShort, checkedSize);
    }
    block.kind = takeByte(stream);
    if (block.kind > RX_KIND_PACKED_FLOAT) {
        return {VANTRIC_ERR_INVALID_DATA, Cause::unknownKind, stream.position - kindSize,
                RX_KIND_PACKED_FLOAT,     block.kind,         RX_KIND_PACKED_FLOAT};
    }
    const std::uint8_t countCode = takeByte(stream);
    if (countCode != longCountCode) {
        block.count = countOf(countCode, header);
    } else if (vantric_canRead(&stream, longCountSize) != VANTRIC_OK) {
        return cutShort(stream, Cause::blockHeaderCutShort, longCountSize);
    } else {
        block.count = bigEndian32(cursorOf(stream));
        stream.position += longCountSize;
    }
    return isPacked(block.kind) ? readPacking(stream, block) : Refusal{};
}

TakenPayload takePayload(VantricStream& stream, const RXBlockHeader& block,
                         std::uint64_t scratchSize, std::uint64_t destSize) {
    const std::uint64_t unpackedSize = vantric_getRXUnpackedBlockSize(&block);
    const std::uint64_t packedSize = vantric_getRXPackedBlockSize(&block);
    if (unpackedSize > destSize) {
        return {refusedFor(VANTRIC_ERR_BUFFER_TOO_SMALL, Cause::tooLarge, destSize, unpackedSize)};
    }
    if (isPacked(block.kind) && packedSize + unpackedSize > scratchSize) {
        return {refusedFor(VANTRIC_ERR_BUFFER_TOO_SMALL, Cause::tooLargeToUnpack, scratchSize,
                           packedSize + unpackedSize)};
    }
    if (vantric_canRead(&stream, packedSize) != VANTRIC_OK) {
        return {refusedFor(VANTRIC_ERR_END_OF_DATA, Cause::payloadCutShort, packedSize,
                           bytesLeft(stream))};
    }
    TakenPayload taken = {{}, cursorOf(stream), packedSize};
    stream.position += packedSize;
    if (!isPacked(block.kind)) {
        return taken;
    }
    if (!validPackedBits(block.bits)) {
        taken.refusal =
            refusedFor(VANTRIC_ERR_INVALID_DATA, Cause::wrongBits, maxPackedBits, block.bits);
    } else if (!holdsValues(packedSize / sizeof(std::uint32_t), block.count, block.bits)) {
        taken.refusal = refusedFor(VANTRIC_ERR_END_OF_DATA, Cause::tooFewWords, block.count, 0);
    }
    return taken;
}

Refusal decodeBlock(VantricStream& stream, const RXBlockHeader& block, std::uint64_t scratchSize,
                    std::uint8_t* dest, std::uint64_t destSize) {
    TakenPayload taken = takePayload(stream, block, scratchSize, destSize);
    if (isPacked(block.kind)) {
        // Integers that the words do hold are written before they turn out to be too few.
        if (!taken.refusal.refused() || taken.refusal.cause == Cause::tooFewWords) {
            decodePacked(taken, block, dest);
        }
    } else if (!taken.refusal.refused()) {
        taken.refusal.status = decodeUnpacked(taken.payload, block, dest);
    }
    return taken.refusal;
}

}  // namespace vantric

using namespace vantric;

uint32_t vantric_readRXHeader(VantricStream* stream, RXHeader* header) {
    return readFileHeader(*stream, *header).status;
}

uint32_t vantric_readRXBlockHeader(VantricStream* stream, const RXHeader* header,
                                   RXBlockHeader* block) {
    return readBlockHeader(*stream, *header, *block).status;
}

uint64_t vantric_getRXUnpackedBlockSize(const RXBlockHeader* block) {
    return block->count * elementSize(block->kind);
}

uint64_t vantric_getRXPackedBlockSize(const RXBlockHeader* block) {
    return isPacked(block->kind) ? vantric_getRXPackedSize(block->count, block->bits)
                                 : block->count * elementSize(block->kind);
}

uint32_t vantric_decodeRXBlock(VantricStream* stream, const RXBlockHeader* block,
                               uint8_t* /*scratch*/, uint64_t scratchSize, uint8_t* dest,
                               uint64_t destSize) {
    return decodeBlock(*stream, *block, scratchSize, dest, destSize).status;
}
