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

// Values that are converted at once: enough to be worth it, few enough to stay in the nearest
// cache.
constexpr std::size_t chunk = 32 * group;

// Value I of the group that starts at words: the low part from the word where it begins, the rest
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

constexpr std::array<std::uint32_t, group> singleBits = [] {
    std::array<std::uint32_t, group> bits{};
    for (std::size_t i = 0; i < group; ++i) {
        bits[i] = 1U << i;
    }
    return bits;
}();

template <unsigned Bits>
void unpackGroup(const std::uint32_t* words, std::uint32_t* values) {
    if constexpr (Bits == 1) {
        // Testing bits is vector code; shifting each by another amount is not everywhere.
        const std::uint32_t word = *words;
        for (std::size_t i = 0; i < group; ++i) {
            values[i] = (word & singleBits[i]) != 0 ? 1 : 0;
        }
    } else {
        [&]<unsigned... I>(std::integer_sequence<unsigned, I...>) {
            ((values[I] = valueAt<Bits, I>(words)), ...);
        }
        (std::make_integer_sequence<unsigned, group>());
    }
}

template <unsigned Bits>
void unpackGroups(const std::uint32_t* words, std::size_t groups, std::uint32_t* values) {
    for (std::size_t g = 0; g < groups; ++g) {
        unpackGroup<Bits>(words + g * Bits, values + g * group);
    }
}

using UnpackGroups = void (*)(const std::uint32_t* words, std::size_t groups,
                              std::uint32_t* values);

template <unsigned... Widths>
constexpr std::array<UnpackGroups, sizeof...(Widths)> unpackersOf(
    std::integer_sequence<unsigned, Widths...> /*widths*/) {
    return {unpackGroups<Widths + 1>...};
}

// Entry b - 1 unpacks values of b bits.
constexpr auto unpackers = unpackersOf(std::make_integer_sequence<unsigned, maxPackedBits>());

// Values that are whole within the words, at most valueCount.
std::uint64_t wholeValues(std::uint64_t wordCount, std::uint64_t valueCount, unsigned bits) {
    const bool countable = wordCount <= std::numeric_limits<std::uint64_t>::max() / wordBits;
    return countable ? std::min(valueCount, wordCount * wordBits / bits) : valueCount;
}

// Unpacks count values, all of which lie within the words.
void unpack(const std::uint32_t* words, std::size_t count, unsigned bits, std::uint32_t* values) {
    const UnpackGroups unpackWhole = unpackers[bits - 1];
    const std::size_t groups = count / group;
    const std::size_t rest = count % group;
    unpackWhole(words, groups, values);
    if (rest != 0) {
        std::uint32_t packed[maxPackedBits] = {};
        std::uint32_t unpacked[group];
        std::memcpy(packed, words + groups * bits,
                    (rest * bits + wordBits - 1) / wordBits * sizeof *packed);
        unpackWhole(packed, 1, unpacked);
        std::memcpy(values + groups * group, unpacked, rest * sizeof *unpacked);
    }
}

// Calls use(first, count) for the chunks of valueCount values.
template <class Use>
void forEachChunk(std::uint64_t valueCount, const Use& use) {
    for (std::uint64_t first = 0; first < valueCount; first += chunk) {
        use(first, static_cast<std::size_t>(std::min<std::uint64_t>(chunk, valueCount - first)));
    }
}

// Calls store(i, value) with each value as a float. Unpacked values have at most 31 bits, so a
// signed conversion gives the same float and maps to one vector instruction. Whole groups leave no
// loop around the conversions.
template <class Store>
void toFixedPoint(const std::uint32_t* values, std::size_t count, float scale, float offset,
                  const Store& store) {
    const auto convert = [&](std::size_t i) {
        store(i, offset + scale * static_cast<float>(static_cast<std::int32_t>(values[i])));
    };
    const std::size_t whole = count - count % group;
    for (std::size_t first = 0; first < whole; first += group) {
        for (std::size_t i = 0; i < group; ++i) {
            convert(first + i);
        }
    }
    for (std::size_t i = whole; i < count; ++i) {
        convert(i);
    }
}

// The chunk of values that starts with value first.
void unpackBigEndian(const std::uint8_t* words, std::uint64_t first, std::size_t count,
                     unsigned bits, std::uint32_t* values) {
    std::uint32_t hostWords[chunk];
    decodeRXUint32s(words + first / group * bits * sizeof *hostWords,
                    (count * bits + wordBits - 1) / wordBits,
                    reinterpret_cast<std::uint8_t*>(hostWords));
    unpack(hostWords, count, bits, values);
}

// Sixteen bytes in one register. The compilers' own vector code for the same loop is several times
// slower: they gather the bits instead of spreading the bytes.
using Lanes = std::uint8_t __attribute__((vector_size(16)));
using LaneHalves = std::uint64_t __attribute__((vector_size(16)));

// The 32 bits of a big-endian word, one byte each.
void spreadWord(const std::uint8_t* word, std::uint8_t* dest) {
    constexpr std::uint64_t everyByte = 0x0101010101010101U;
    constexpr Lanes bits = {1, 2, 4, 8, 16, 32, 64, 128, 1, 2, 4, 8, 16, 32, 64, 128};
    for (std::size_t half = 0; half < 2; ++half) {
        const std::uint8_t* low = word + 3 - 2 * half;
        const LaneHalves spread = {low[0] * everyByte, low[-1] * everyByte};
        const auto set = reinterpret_cast<Lanes>((reinterpret_cast<Lanes>(spread) & bits) == bits);
        const Lanes ones = set & 1;
        std::memcpy(dest + half * sizeof ones, &ones, sizeof ones);
    }
}

void spreadWords(const std::uint8_t* words, std::uint64_t count, std::uint8_t* dest) {
    const std::uint64_t whole = count / wordBits;
    for (std::uint64_t i = 0; i < whole; ++i) {
        spreadWord(words + i * sizeof(std::uint32_t), dest + i * wordBits);
    }
    if (count % wordBits != 0) {
        std::uint8_t last[wordBits];
        spreadWord(words + whole * sizeof(std::uint32_t), last);
        std::memcpy(dest + whole * wordBits, last, count % wordBits);
    }
}

std::uint32_t statusOf(std::uint64_t whole, std::uint64_t valueCount) {
    return whole == valueCount ? VANTRIC_OK : VANTRIC_ERR_END_OF_DATA;
}

}  // namespace

bool holdsValues(std::uint64_t wordCount, std::uint64_t valueCount, unsigned bits) {
    return wholeValues(wordCount, valueCount, bits) == valueCount;
}

std::uint32_t decodePackedUints(const std::uint8_t* words, std::uint64_t wordCount,
                                std::uint64_t valueCount, unsigned bits, std::uint8_t* dest) {
    const std::uint64_t whole = wholeValues(wordCount, valueCount, bits);
    forEachChunk(whole, [&](std::uint64_t first, std::size_t count) {
        std::uint32_t values[chunk];
        unpackBigEndian(words, first, count, bits, values);
        std::memcpy(dest + first * sizeof *values, values, count * sizeof *values);
    });
    return statusOf(whole, valueCount);
}

std::uint32_t decodePackedLowBytes(const std::uint8_t* words, std::uint64_t wordCount,
                                   std::uint64_t valueCount, unsigned bits, std::uint8_t* dest) {
    const std::uint64_t whole = wholeValues(wordCount, valueCount, bits);
    if (bits == 1) {
        spreadWords(words, whole, dest);
        return statusOf(whole, valueCount);
    }
    forEachChunk(whole, [&](std::uint64_t first, std::size_t count) {
        std::uint32_t values[chunk];
        unpackBigEndian(words, first, count, bits, values);
        std::transform(values, values + count, dest + first,
                       [](std::uint32_t value) { return static_cast<std::uint8_t>(value); });
    });
    return statusOf(whole, valueCount);
}

std::uint32_t decodePackedFloats(const std::uint8_t* words, std::uint64_t wordCount,
                                 std::uint64_t valueCount, unsigned bits, float scale, float offset,
                                 std::uint8_t* dest) {
    const std::uint64_t whole = wholeValues(wordCount, valueCount, bits);
    if (whole == valueCount) {
        forEachChunk(whole, [&](std::uint64_t first, std::size_t count) {
            std::uint32_t values[chunk];
            unpackBigEndian(words, first, count, bits, values);
            std::uint8_t* floats = dest + first * sizeof(float);
            toFixedPoint(values, count, scale, offset, [&](std::size_t i, float value) {
                std::memcpy(floats + i * sizeof value, &value, sizeof value);
            });
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
    unpack(words, whole, bits, out);
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
    forEachChunk(whole, [&](std::uint64_t first, std::size_t count) {
        unpack(words + first / group * bits, count, bits, scratch + first);
        if (complete) {
            toFixedPoint(scratch + first, count, scale, offset,
                         [floats = out + first](std::size_t i, float value) { floats[i] = value; });
        }
    });
    return statusOf(whole, valueCount);
}
