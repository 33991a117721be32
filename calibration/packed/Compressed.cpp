#include "calibration/packed/Compressed.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <cstring>
#include <limits>
#include <utility>

#include "calibration/packed/Uncompressed.h"

namespace vantric {

namespace {

constexpr unsigned wordBits = 32;

// 32 values of b bits are exactly b words, so the shifts of a group are the same in every group
// and constants once the width is a template argument.
constexpr std::size_t group = 32;

// Value i of the group that starts at words: the low part from the word where it begins, the rest
// from the next one.
template <unsigned Bits, unsigned I>
std::uint32_t valueAt(const std::uint32_t* words) {
    constexpr std::uint32_t mask = (1U << Bits) - 1;
    constexpr unsigned word = I * Bits / wordBits;
    constexpr unsigned shift = I * Bits % wordBits;
    std::uint32_t value = words[word] >> shift;
    if constexpr (shift + Bits > wordBits) {
        value |= words[word + 1] << (wordBits - shift);
    }
    return value & mask;
}

template <unsigned Bits>
void unpackGroup(const std::uint32_t* words, std::uint32_t* values) {
    [&]<unsigned... I>(std::integer_sequence<unsigned, I...>) {
        ((values[I] = valueAt<Bits, I>(words)), ...);
    }
    (std::make_integer_sequence<unsigned, group>());
}

using UnpackGroup = void (*)(const std::uint32_t* words, std::uint32_t* values);

template <unsigned... Widths>
constexpr std::array<UnpackGroup, sizeof...(Widths)> unpackersOf(
    std::integer_sequence<unsigned, Widths...> /*widths*/) {
    return {unpackGroup<Widths + 1>...};
}

// Entry b - 1 unpacks values of b bits.
constexpr auto unpackers = unpackersOf(std::make_integer_sequence<unsigned, maxPackedBits>());

struct HostWords {
    const std::uint32_t* words;
    void load(std::uint64_t first, std::size_t count, std::uint32_t* to) const {
        std::memcpy(to, words + first, count * sizeof *to);
    }
};

struct BigEndianWords {
    const std::uint8_t* bytes;
    void load(std::uint64_t first, std::size_t count, std::uint32_t* to) const {
        const std::uint8_t* from = bytes + first * sizeof *to;
        for (std::size_t i = 0; i < count; ++i) {
            to[i] = bigEndian32(from + i * sizeof *to);
        }
    }
};

// Values that are whole within the words, at most valueCount.
std::uint64_t wholeValues(std::uint64_t wordCount, std::uint64_t valueCount, unsigned bits) {
    const bool countable = wordCount <= std::numeric_limits<std::uint64_t>::max() / wordBits;
    return countable ? std::min(valueCount, wordCount * wordBits / bits) : valueCount;
}

// Hands the values to store(first, count, values) in groups.
template <class Words, class Store>
void unpack(const Words& words, std::uint64_t wordCount, std::uint64_t valueCount, unsigned bits,
            const Store& store) {
    const UnpackGroup unpackOne = unpackers[bits - 1];
    for (std::uint64_t done = 0; done < valueCount; done += group) {
        const std::uint64_t firstWord = done / group * bits;
        std::uint32_t packed[maxPackedBits] = {};
        words.load(firstWord, std::min<std::uint64_t>(bits, wordCount - firstWord), packed);
        std::uint32_t values[group];
        unpackOne(packed, values);
        store(done, std::min<std::uint64_t>(group, valueCount - done), values);
    }
}

// Unpacked values have at most 31 bits, so a signed conversion gives the same float and maps to
// one vector instruction.
void toFixedPoint(const std::uint32_t* values, float scale, float offset, float* out) {
    for (std::size_t i = 0; i < group; ++i) {
        out[i] = offset + scale * static_cast<float>(static_cast<std::int32_t>(values[i]));
    }
}

std::uint32_t statusOf(std::uint64_t whole, std::uint64_t valueCount) {
    return whole == valueCount ? VANTRIC_OK : VANTRIC_ERR_END_OF_DATA;
}

}  // namespace

std::uint32_t decodePackedUints(const std::uint8_t* words, std::uint64_t wordCount,
                                std::uint64_t valueCount, unsigned bits, std::uint8_t* dest) {
    const std::uint64_t whole = wholeValues(wordCount, valueCount, bits);
    unpack(BigEndianWords{words}, wordCount, whole, bits,
           [&](std::uint64_t first, std::size_t count, const std::uint32_t* values) {
               std::memcpy(dest + first * sizeof *values, values, count * sizeof *values);
           });
    return statusOf(whole, valueCount);
}

std::uint32_t decodePackedFloats(const std::uint8_t* words, std::uint64_t wordCount,
                                 std::uint64_t valueCount, unsigned bits, float scale, float offset,
                                 std::uint8_t* dest) {
    const std::uint64_t whole = wholeValues(wordCount, valueCount, bits);
    if (whole == valueCount) {
        unpack(BigEndianWords{words}, wordCount, whole, bits,
               [&](std::uint64_t first, std::size_t count, const std::uint32_t* values) {
                   float converted[group];
                   toFixedPoint(values, scale, offset, converted);
                   std::memcpy(dest + first * sizeof *converted, converted,
                               count * sizeof *converted);
               });
    }
    return statusOf(whole, valueCount);
}

}  // namespace vantric

using namespace vantric;

uint64_t vantric_getRXPackedSize(uint64_t valueCount, uint8_t bits) {
    const float words = std::ceil(static_cast<float>(valueCount * bits) * 0.03125F);
    return static_cast<std::uint64_t>(words) * sizeof(std::uint32_t);
}

uint32_t vantric_unpackRXUint(const uint32_t* words, uint64_t wordCount, uint64_t valueCount,
                              uint8_t bits, uint32_t* out) {
    if (!validPackedBits(bits)) {
        return VANTRIC_ERR_INVALID_DATA;
    }
    const std::uint64_t whole = wholeValues(wordCount, valueCount, bits);
    unpack(HostWords{words}, wordCount, whole, bits,
           [&](std::uint64_t first, std::size_t count, const std::uint32_t* values) {
               std::memcpy(out + first, values, count * sizeof *values);
           });
    return statusOf(whole, valueCount);
}

uint32_t vantric_unpackRXFloat(const uint32_t* words, uint64_t wordCount, uint64_t valueCount,
                               uint8_t bits, uint32_t* scratch, float* out, float scale,
                               float offset) {
    if (!validPackedBits(bits)) {
        return VANTRIC_ERR_INVALID_DATA;
    }
    const std::uint64_t whole = wholeValues(wordCount, valueCount, bits);
    const bool complete = whole == valueCount;
    unpack(HostWords{words}, wordCount, whole, bits,
           [&](std::uint64_t first, std::size_t count, const std::uint32_t* values) {
               std::memcpy(scratch + first, values, count * sizeof *values);
               if (complete) {
                   float converted[group];
                   toFixedPoint(values, scale, offset, converted);
                   std::memcpy(out + first, converted, count * sizeof *converted);
               }
           });
    return statusOf(whole, valueCount);
}
