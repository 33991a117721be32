#include "calibration/packed/Block.h"

#include <cstddef>
#include <cstring>

#include "calibration/packed/CalibrationStream.h"
#include "calibration/packed/Compressed.h"
#include "calibration/packed/Uncompressed.h"

using namespace vantric;

namespace {

// File header
//     0      6    7         9      11
//     +------+----+---------+------+
//     |QOVRXF| v. | columns | rows |
//     +------+----+---------+------+
constexpr char magic[] = {'Q', 'O', 'V', 'R', 'X', 'F'};
constexpr std::size_t versionOffset = 0;  // behind the magic, as the next two
constexpr std::size_t columnsOffset = versionOffset + 1;
constexpr std::size_t rowsOffset = columnsOffset + 2;
constexpr std::size_t headerRest = rowsOffset + 2;
static_assert(sizeof magic + headerRest == 11);

// Block header; only the fields that its kind and count code call for
//     +----+------+------------+------------+------+-------+--------+
//     | id | kind | count code | long count | bits | scale | offset |
//     +----+------+------------+------------+------+-------+--------+
//       1     1        1         4 (code 249)  1 (5, 6)  4      4 (6)
constexpr std::uint64_t idSize = 1;
constexpr std::uint64_t kindSize = 1;
constexpr std::uint64_t countCodeSize = 1;
constexpr std::uint64_t longCountSize = 4;
constexpr std::uint64_t bitsSize = 1;
constexpr std::uint64_t scaleSize = 4;
constexpr std::uint64_t offsetSize = 4;

constexpr std::uint8_t perPixelCode = 0;
constexpr std::uint8_t longCountCode = 249;
constexpr std::uint8_t perPixelFactorBase = 248;  // codes 250 to 255: 2 to 7 elements per pixel

constexpr bool isPacked(std::uint32_t kind) {
    return kind == RX_KIND_PACKED_UINT || kind == RX_KIND_PACKED_FLOAT;
}

// Bytes of one element, stored (not packed) or decoded.
std::uint64_t elementSize(std::uint32_t kind) {
    switch (kind) {
        case RX_KIND_RAW:
            return 1;
        case RX_KIND_UINT16:
            return 2;
        default:
            return 4;
    }
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

// The byte at the cursor, or 0 behind the end; the cursor moves in either case. No check stands
// before the bits byte of a long count, and truncated input keeps its statuses that way.
std::uint8_t takeUncheckedByte(VantricStream& stream) {
    const std::uint8_t byte = vantric_canRead(&stream, 1) == VANTRIC_OK ? *cursorOf(stream) : 0;
    stream.position += 1;
    return byte;
}

std::uint32_t decodeUnpacked(const std::uint8_t* payload, const RXBlockHeader& block,
                             std::uint8_t* dest) {
    switch (block.kind) {
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

std::uint32_t decodePacked(const std::uint8_t* payload, std::uint64_t payloadSize,
                           const RXBlockHeader& block, std::uint8_t* dest) {
    if (!validPackedBits(block.bits)) {
        return VANTRIC_ERR_INVALID_DATA;
    }
    const std::uint64_t words = payloadSize / sizeof(std::uint32_t);
    if (block.kind == RX_KIND_PACKED_UINT) {
        return decodePackedUints(payload, words, block.count, block.bits, dest);
    }
    return decodePackedFloats(payload, words, block.count, block.bits, block.scale, block.offset,
                              dest);
}

}  // namespace

uint32_t vantric_readRXHeader(VantricStream* stream, RXHeader* header) {
    if (vantric_canRead(stream, sizeof magic) != VANTRIC_OK) {
        return VANTRIC_ERR_END_OF_DATA;
    }
    if (std::memcmp(cursorOf(*stream), magic, sizeof magic) != 0) {
        return VANTRIC_ERR_NOT_SUPPORTED;
    }
    stream->position += sizeof magic;
    if (vantric_canRead(stream, headerRest) != VANTRIC_OK) {
        return VANTRIC_ERR_END_OF_DATA;
    }
    const std::uint8_t* rest = cursorOf(*stream);
    header->version = rest[versionOffset];
    header->columns = bigEndian16(rest + columnsOffset);
    header->rows = bigEndian16(rest + rowsOffset);
    stream->position += headerRest;
    return VANTRIC_OK;
}

uint32_t vantric_readRXBlockHeader(VantricStream* stream, const RXHeader* header,
                                   RXBlockHeader* block) {
    if (vantric_canRead(stream, idSize) != VANTRIC_OK) {
        return VANTRIC_ERR_END_OF_DATA;
    }
    block->id = *cursorOf(*stream);
    stream->position += idSize;
    if (block->id == VANTRIC_RX_END_MARKER) {
        return VANTRIC_OK;
    }

    if (vantric_canRead(stream, kindSize + countCodeSize + bitsSize) != VANTRIC_OK) {
        return VANTRIC_ERR_END_OF_DATA;
    }
    block->kind = *cursorOf(*stream);
    stream->position += kindSize;
    if (block->kind > RX_KIND_PACKED_FLOAT) {
        return VANTRIC_ERR_INVALID_DATA;
    }
    const std::uint8_t countCode = *cursorOf(*stream);
    stream->position += countCodeSize;

    if (countCode == longCountCode) {
        if (vantric_canRead(stream, longCountSize) != VANTRIC_OK) {
            return VANTRIC_ERR_END_OF_DATA;
        }
        block->count = bigEndian32(cursorOf(*stream));
        stream->position += longCountSize;
    } else {
        block->count = countOf(countCode, *header);
    }

    if (!isPacked(block->kind)) {
        return VANTRIC_OK;
    }
    block->bits = takeUncheckedByte(*stream);
    if (block->kind == RX_KIND_PACKED_UINT) {
        return VANTRIC_OK;
    }
    if (vantric_canRead(stream, scaleSize + offsetSize) != VANTRIC_OK) {
        return VANTRIC_ERR_END_OF_DATA;
    }
    vantric_fromRXFloat(cursorOf(*stream), &block->scale);
    stream->position += scaleSize;
    vantric_fromRXFloat(cursorOf(*stream), &block->offset);
    stream->position += offsetSize;
    return VANTRIC_OK;
}

uint64_t vantric_getRXUnpackedBlockSize(const RXBlockHeader* block) {
    return block->count * elementSize(block->kind);
}

uint64_t vantric_getRXPackedBlockSize(const RXBlockHeader* block) {
    return isPacked(block->kind) ? vantric_getRXPackedSize(block->count, block->bits)
                                 : block->count * elementSize(block->kind);
}

uint32_t vantric_decodeRXBlock(VantricStream* stream, const RXBlockHeader* block, uint8_t* scratch,
                               uint64_t scratchSize, uint8_t* dest, uint64_t destSize) {
    // The packed kinds are decoded without a detour; the room that callers bring for one is still
    // asked for, because it decides which blocks are refused.
    static_cast<void>(scratch);
    const std::uint64_t unpackedSize = vantric_getRXUnpackedBlockSize(block);
    const std::uint64_t packedSize = vantric_getRXPackedBlockSize(block);
    if (unpackedSize > destSize ||
        (isPacked(block->kind) && packedSize + unpackedSize > scratchSize)) {
        return VANTRIC_ERR_BUFFER_TOO_SMALL;
    }
    if (vantric_canRead(stream, packedSize) != VANTRIC_OK) {
        return VANTRIC_ERR_END_OF_DATA;
    }
    const std::uint8_t* payload = cursorOf(*stream);
    stream->position += packedSize;
    if (isPacked(block->kind)) {
        return decodePacked(payload, packedSize, *block, dest);
    }
    if (block->kind == RX_KIND_RAW) {
        if (packedSize != 0) {
            std::memcpy(dest, payload, packedSize);
        }
        return VANTRIC_OK;
    }
    return decodeUnpacked(payload, *block, dest);
}
