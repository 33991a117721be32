#include "calibration/packed/Block.h"

#include <cstring>

#include "calibration/packed/CalibrationStream.h"
#include "calibration/packed/Compressed.h"
#include "calibration/packed/Uncompressed.h"

namespace vantric {

namespace {

Refusal cutShort(const VantricStream& stream, Cause cause, std::uint64_t needed) {
    return refusedFor(VANTRIC_ERR_END_OF_DATA, cause, stream.position, needed, bytesLeft(stream));
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

// From the bits byte on, which only the packed kinds have.
Refusal readPacking(VantricStream& stream, RXBlockHeader& block) {
    FieldReader fields(stream);
    if (!fields.read(block.bits)) {
        // Possible behind a long count only. The format has no check here, so a missing byte counts
        // as 0 and the cursor moves all the same.
        block.bits = 0;
        ++stream.position;
    }
    if (block.kind == RX_KIND_PACKED_FLOAT && !fields.read(block.scale, block.offset)) {
        return cutShort(stream, Cause::blockHeaderCutShort, fixedPointSize);
    }
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
    const Refusal tooShort = cutShort(stream, Cause::headerCutShort, fileHeaderSize);
    VantricStream behindMagic = stream;
    std::array<char, packedMagic.size()> magic;
    if (!FieldReader(behindMagic).read(magic)) {
        return tooShort;
    }
    if (magic != packedMagic) {
        return refusedFor(VANTRIC_ERR_NOT_SUPPORTED, Cause::wrongMagic, stream.position, 0, 0);
    }
    stream = behindMagic;
    std::uint8_t version = 0;
    if (!FieldReader(stream).read(version, header.columns, header.rows)) {
        return tooShort;
    }
    header.version = version;
    return {};
}

Refusal readBlockHeader(VantricStream& stream, const RXHeader& header, RXBlockHeader& block) {
    FieldReader fields(stream);
    std::uint8_t id = 0;
    if (!fields.read(id)) {
        return cutShort(stream, Cause::blockHeaderCutShort, idSize);
    }
    block.id = id;
    if (id == VANTRIC_RX_END_MARKER) {
        return {};
    }
    // One check for the kind, the count code, and the bits byte behind a count of one byte.
    constexpr std::uint64_t checkedSize = kindSize + countCodeSize + bitsSize;
    std::uint8_t kind = 0;
    if (!canRead(stream, checkedSize) || !fields.read(kind)) {
        return cutShort(stream, Cause::blockHeaderCutShort, checkedSize);
    }
    block.kind = kind;
    if (kind > RX_KIND_PACKED_FLOAT) {
        return refusedFor(VANTRIC_ERR_INVALID_DATA, Cause::unknownKind, stream.position - kindSize,
                          RX_KIND_PACKED_FLOAT, kind);
    }
    std::uint8_t countCode = 0;
    if (fields.read(countCode) && countCode != longCountCode) {
        block.count = countOf(countCode, header);
    } else if (!fields.read(block.count)) {
        return cutShort(stream, Cause::blockHeaderCutShort, longCountSize);
    }
    return isPacked(kind) ? readPacking(stream, block) : Refusal{};
}

TakenPayload takePayload(VantricStream& stream, const RXBlockHeader& block,
                         std::uint64_t scratchSize, std::uint64_t destSize) {
    const std::uint64_t unpackedSize = vantric_getRXUnpackedBlockSize(&block);
    const std::uint64_t packedSize = vantric_getRXPackedBlockSize(&block);
    if (unpackedSize > destSize) {
        return {
            refusedFor(VANTRIC_ERR_BUFFER_TOO_SMALL, Cause::tooLarge, 0, destSize, unpackedSize)};
    }
    if (isPacked(block.kind) && packedSize + unpackedSize > scratchSize) {
        return {refusedFor(VANTRIC_ERR_BUFFER_TOO_SMALL, Cause::tooLargeToUnpack, 0, scratchSize,
                           packedSize + unpackedSize)};
    }
    TakenPayload taken = {{}, nullptr, packedSize};
    if (!FieldReader(stream).take(packedSize, taken.payload)) {
        return {refusedFor(VANTRIC_ERR_END_OF_DATA, Cause::payloadCutShort, 0, packedSize,
                           bytesLeft(stream))};
    }
    if (!isPacked(block.kind)) {
        return taken;
    }
    if (!validPackedBits(block.bits)) {
        taken.refusal =
            refusedFor(VANTRIC_ERR_INVALID_DATA, Cause::wrongBits, 0, maxPackedBits, block.bits);
    } else if (!holdsValues(packedSize / sizeof(std::uint32_t), block.count, block.bits)) {
        taken.refusal = refusedFor(VANTRIC_ERR_END_OF_DATA, Cause::tooFewWords, 0, block.count, 0);
    }
    return taken;
}

Refusal decodeBlock(VantricStream& stream, const RXBlockHeader& block, std::uint64_t scratchSize,
                    std::uint8_t* dest, std::uint64_t destSize) {
    TakenPayload taken = takePayload(stream, block, scratchSize, destSize);
    if (isPacked(block.kind)) {
        // With too few words, the integers that are there are decoded all the same.
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
