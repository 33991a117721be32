#include <algorithm>
#include <array>
#include <cstring>
#include <utility>

#include "calibration/packed/Compressed.h"
#include "calibration/packed/DecodingKernels.h"
#include "calibration/packed/Uncompressed.h"

namespace vantric {

namespace {

constexpr unsigned wordBits = 32;
constexpr std::size_t wordSize = sizeof(std::uint32_t);

// Groups that are put into the order of the machine and unpacked at once: enough to be worth it,
// few enough to stay in the nearest cache.
constexpr std::size_t chunk = 32;

// Value I of the group that starts at words: the low part from the word where it begins, the rest
// from the next one.
template <unsigned Bits, unsigned I>
std::uint32_t valueAt(const std::uint32_t* words) {
    constexpr unsigned word = I * Bits / wordBits;
    constexpr unsigned shift = I * Bits % wordBits;
    const std::uint32_t low = words[word] >> shift;
    if constexpr (shift + Bits > wordBits) {
        constexpr std::uint32_t mask = (1U << (shift + Bits - wordBits)) - 1;
        return low | (words[word + 1] & mask) << (wordBits - shift);
    } else {
        constexpr std::uint32_t mask = (1U << Bits) - 1;
        return low & mask;
    }
}

// The bits of a word, a word each. Testing bits is vector code; shifting each by another amount is
// not everywhere.
void spreadSingleBits(std::uint32_t word, std::uint32_t* values) {
    using Words = std::uint32_t __attribute__((vector_size(16)));
    constexpr Words firstBits = {1, 2, 4, 8};
    constexpr std::size_t lanes = sizeof(Words) / sizeof word;
#pragma GCC unroll 8
    for (std::size_t i = 0; i < groupSize; i += lanes) {
        const Words bit = word & (firstBits << static_cast<std::uint32_t>(i));
        const Words ones = reinterpret_cast<Words>(bit != 0) & 1;
        std::memcpy(values + i, &ones, sizeof ones);
    }
}

template <unsigned Bits>
void unpackGroup(const std::uint32_t* words, std::uint32_t* values) {
    if constexpr (Bits == 1) {
        spreadSingleBits(*words, values);
    } else {
        [&]<unsigned... I>(std::integer_sequence<unsigned, I...>) {
            ((values[I] = valueAt<Bits, I>(words)), ...);
        }
        (std::make_integer_sequence<unsigned, groupSize>());
    }
}

template <unsigned Bits>
void unpackGroups(const std::uint32_t* words, std::size_t groups, std::uint32_t* values) {
    for (std::size_t g = 0; g < groups; ++g) {
        unpackGroup<Bits>(words + g * Bits, values + g * groupSize);
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

// Calls use(values, first, groups) for the chunks of big-endian words.
template <class Use>
void unpackBigEndian(const std::uint8_t* words, std::size_t groups, unsigned bits, const Use& use) {
    for (std::size_t first = 0; first < groups; first += chunk) {
        const std::size_t some = std::min(chunk, groups - first);
        std::uint32_t hostWords[chunk * maxPackedBits];
        std::uint32_t values[chunk * groupSize];
        portableKernels.swapWords(words + first * bits * wordSize, some * bits,
                                  reinterpret_cast<std::uint8_t*>(hostWords));
        unpackers[bits - 1](hostWords, some, values);
        use(values, first, some);
    }
}

void unpackUints(const std::uint8_t* words, std::size_t groups, unsigned bits, bool bigEndian,
                 std::uint8_t* dest) {
    if (!bigEndian) {
        unpackers[bits - 1](reinterpret_cast<const std::uint32_t*>(words), groups,
                            reinterpret_cast<std::uint32_t*>(dest));
        return;
    }
    unpackBigEndian(
        words, groups, bits, [=](const std::uint32_t* values, std::size_t first, std::size_t some) {
            std::memcpy(dest + first * groupSize * wordSize, values, some * groupSize * wordSize);
        });
}

void toFixedPoint(const std::uint32_t* values, std::size_t count, float scale, float offset,
                  std::uint8_t* floats) {
    for (std::size_t i = 0; i < count; ++i) {
        // Below 2^31, so a signed conversion gives the same float and is one vector instruction.
        const float value =
            offset + scale * static_cast<float>(static_cast<std::int32_t>(values[i]));
        std::memcpy(floats + i * sizeof value, &value, sizeof value);
    }
}

void unpackFloats(const std::uint8_t* words, std::size_t groups, unsigned bits, float scale,
                  float offset, std::uint8_t* dest) {
    unpackBigEndian(words, groups, bits,
                    [=](const std::uint32_t* values, std::size_t first, std::size_t some) {
                        toFixedPoint(values, some * groupSize, scale, offset,
                                     dest + first * groupSize * sizeof(float));
                    });
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

void spreadBits(const std::uint8_t* words, std::size_t count, std::uint8_t* dest) {
    const std::size_t whole = count / wordBits;
    for (std::size_t i = 0; i < whole; ++i) {
        spreadWord(words + i * wordSize, dest + i * wordBits);
    }
    if (count % wordBits != 0) {
        std::uint8_t last[wordBits];
        spreadWord(words + whole * wordSize, last);
        std::memcpy(dest + whole * wordBits, last, count % wordBits);
    }
}

constexpr std::uint32_t mantissaBits = 23;
constexpr std::uint32_t signBit = 0x80000000U;

// Words that are put into the order of the machine and then decoded at once. So many that reading
// avoids store-forwarding stalls: the stores were made in another width.
constexpr std::size_t floatChunk = 256;

// What wraps on purpose is not for Clang's integer checks.
#if defined(__clang__)
#define CALCUT_WRAPS [[clang::no_sanitize("unsigned-integer-overflow")]]
#else
#define CALCUT_WRAPS
#endif

// A word of exponent field e is the machine's float of exponent field e - 1: one subtraction
// on the word, sign put in front. That holds for e from 2 to 255 and, with nothing subtracted,
// for 0. The rest (results below the smallest normal float, and -2^31) follows the general rule,
// and wraps here.
CALCUT_WRAPS std::uint32_t machineBits(std::uint32_t word, std::uint32_t magnitude) {
    const std::uint32_t shifted = magnitude == 0 ? 0U : magnitude - (1U << mantissaBits);
    return shifted | (word & signBit);
}

// Whether machineBits does not hold for a word; a magnitude of 2^31 is negative here.
bool isExceptional(std::uint32_t magnitude) {
    constexpr std::int32_t smallestPlain = 2 << mantissaBits;
    return magnitude != 0 && static_cast<std::int32_t>(magnitude) < smallestPlain;
}

// False when some word is exceptional; dest then holds wrong values.
bool decodePlainFloats(const std::uint32_t* words, std::size_t count, std::uint8_t* dest) {
    std::uint32_t exceptional = 0;
    for (std::size_t i = 0; i < count; ++i) {
        const std::uint32_t magnitude = (words[i] & signBit) != 0 ? ~words[i] + 1 : words[i];
        const std::uint32_t bits = machineBits(words[i], magnitude);
        exceptional |= isExceptional(magnitude) ? 1U : 0U;
        std::memcpy(dest + i * sizeof bits, &bits, sizeof bits);
    }
    return exceptional == 0;
}

void decodeFloats(const std::uint8_t* source, std::size_t count, std::uint8_t* dest) {
    for (std::size_t first = 0; first < count; first += floatChunk) {
        const std::size_t size = std::min(floatChunk, count - first);
        std::uint32_t words[floatChunk];
        portableKernels.swapWords(source + first * wordSize, size,
                                  reinterpret_cast<std::uint8_t*>(words));
        std::uint8_t* to = dest + first * wordSize;
        if (!decodePlainFloats(words, size, to)) {
            for (std::size_t i = 0; i < size; ++i) {
                const float value = vantric_decodeRXFloat(static_cast<std::int32_t>(words[i]));
                std::memcpy(to + i * sizeof value, &value, sizeof value);
            }
        }
    }
}

void swapWords(const std::uint8_t* source, std::size_t count, std::uint8_t* dest) {
    const auto swap = [&](std::size_t i) {
        const std::uint32_t value = bigEndian32(source + wordSize * i);
        std::memcpy(dest + wordSize * i, &value, sizeof value);
    };
    // Several to a round of the loop, which otherwise takes longer than the words.
    constexpr std::size_t stride = 8;
    std::size_t i = 0;
    for (; i + stride <= count; i += stride) {
        for (std::size_t k = 0; k < stride; ++k) {
            swap(i + k);
        }
    }
    for (; i < count; ++i) {
        swap(i);
    }
}

}  // namespace

constinit const DecodingKernels portableKernels = {unpackUints, unpackFloats, toFixedPoint,
                                                   spreadBits,  decodeFloats, swapWords};

}  // namespace vantric
