#pragma once

// File header, block headers and payloads of the packed format.
#include <array>
#include <cstddef>
#include <cstdint>

#include "calcut/vantric_rx.h"
#include "calibration/packed/Refusal.h"

namespace vantric {

// File header
//     0      6    7         9      11
//     +------+----+---------+------+
//     |QOVRXF| v. | columns | rows |
//     +------+----+---------+------+
constexpr std::array<char, 6> packedMagic = {'Q', 'O', 'V', 'R', 'X', 'F'};
constexpr std::size_t versionOffset = packedMagic.size();
constexpr std::size_t columnsOffset = versionOffset + 1;
constexpr std::size_t rowsOffset = columnsOffset + 2;
constexpr std::size_t fileHeaderSize = rowsOffset + 2;
static_assert(fileHeaderSize == 11);
constexpr std::uint32_t packedVersion = 1;

// Block header; in brackets: the kinds and count codes that have the field
//     +----+------+------------+------------+------+-------+--------+
//     | id | kind | count code | long count | bits | scale | offset |
//     +----+------+------------+------------+------+-------+--------+
//       1     1        1         4 (code 249)  1 (5, 6)  4      4 (6)
constexpr std::uint64_t idSize = 1;
constexpr std::uint64_t kindSize = 1;
constexpr std::uint64_t countCodeSize = 1;
constexpr std::uint64_t longCountSize = 4;
constexpr std::uint64_t bitsSize = 1;
constexpr std::uint64_t fixedPointSize = 8;  // scale and offset
constexpr std::uint64_t kindOffset = idSize;
constexpr std::uint64_t countCodeOffset = kindOffset + kindSize;

// Count codes; 1 to 248 are the count itself.
constexpr std::uint8_t perPixelCode = 0;
constexpr std::uint8_t longCountCode = 249;
constexpr std::uint8_t perPixelFactorBase = 248;  // codes 250 to 255: 2 to 7 elements per pixel
constexpr std::uint8_t largestCountCode = 255;

constexpr bool isPacked(std::uint32_t kind) {
    return kind == RX_KIND_PACKED_UINT || kind == RX_KIND_PACKED_FLOAT;
}

/// Bytes of one element, stored (not packed) or decoded.
constexpr std::uint64_t elementSize(std::uint32_t kind) {
    return kind == RX_KIND_RAW ? 1 : kind == RX_KIND_UINT16 ? 2 : 4;
}

// The functions of the public header, with the reason of a refusal. takePayload and decodeBlock
// leave its offset at 0.
Refusal readFileHeader(VantricStream& stream, RXHeader& header);
Refusal readBlockHeader(VantricStream& stream, const RXHeader& header, RXBlockHeader& block);

/// Makes every check of decoding in the same order and moves the cursor as decoding does, but
/// decodes nothing. payload is null unless it is there.
struct TakenPayload {
    Refusal refusal;
    const std::uint8_t* payload = nullptr;
    std::uint64_t size = 0;
};
TakenPayload takePayload(VantricStream& stream, const RXBlockHeader& block,
                         std::uint64_t scratchSize, std::uint64_t destSize);

/// vantric_decodeRXBlock. It needs no scratch, but its size decides which blocks are refused.
Refusal decodeBlock(VantricStream& stream, const RXBlockHeader& block, std::uint64_t scratchSize,
                    std::uint8_t* dest, std::uint64_t destSize);

}  // namespace vantric
