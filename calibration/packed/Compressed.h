#pragma once

#include <cstdint>

#include "calcut/vantric_rx.h"

namespace vantric {

constexpr unsigned maxPackedBits = 31;

constexpr bool validPackedBits(unsigned bits) {
    return bits >= 1 && bits <= maxPackedBits;
}

/// Whether wordCount words hold valueCount values; bits must be valid.
bool holdsValues(std::uint64_t wordCount, std::uint64_t valueCount, unsigned bits);

// All read wordCount big-endian words at any alignment and write to dest at any alignment, without
// a pass of their own over the words. Statuses are those of vantric_unpackRXUint; bits must be
// valid. decodePackedLowBytes keeps the low 8 bits of each value and writes one byte for it.
// decodePackedFloats writes nothing when the words hold fewer values.
std::uint32_t decodePackedUints(const std::uint8_t* words, std::uint64_t wordCount,
                                std::uint64_t valueCount, unsigned bits, std::uint8_t* dest);
std::uint32_t decodePackedLowBytes(const std::uint8_t* words, std::uint64_t wordCount,
                                   std::uint64_t valueCount, unsigned bits, std::uint8_t* dest);
std::uint32_t decodePackedFloats(const std::uint8_t* words, std::uint64_t wordCount,
                                 std::uint64_t valueCount, unsigned bits, float scale, float offset,
                                 std::uint8_t* dest);

}  // namespace vantric
