#pragma once

// The kernels of payloads by byte look-up. A value of up to 25 bits lies within four bytes; a
// look-up brings these into the lane of the value, in whichever byte order, a shift and a mask do
// the rest.

#include "calcut/vantric_rx.h"
#include "calibration/lanes.h"
#include "calibration/packed/DecodingKernels.h"

namespace vantric::CALCUT_INSTRUCTION_SET {

// Four values and the bits in front of them in their first word fit into one window.
constexpr unsigned maxWindowBits = 25;
constexpr std::size_t valuesOfWindow = 4;
constexpr std::size_t wordSize = sizeof(std::uint32_t);
constexpr std::size_t wordsAtOnce = 32;
constexpr std::size_t registersOfGroup = groupSize / lanes;

// How the values of a group get into their lanes.
struct Unpacking {
    std::size_t windowAt[groupSize / valuesOfWindow];
    Words index[registersOfGroup];
    SignedWords shift[registersOfGroup];
    Words mask;
};

// Values of whole bytes need neither shift nor mask: the look-up leaves the other bytes 0. Those of
// single bits need no look-up: a group is one word.
enum class Width { anyBits, wholeBytes, oneBit };

template <Width W>
CALCUT_INLINE Unpacking unpackingOf(unsigned bits, bool bigEndian) {
    Unpacking unpacking;
    const std::uint32_t mask = (1U << bits) - 1;
    unpacking.mask = Words{} + mask;
    unrolled<registersOfGroup>([&](auto r) {
        Words firstBit = {};
        unrolled<lanes>([&](auto lane) {
            const unsigned bit = static_cast<unsigned>(r * lanes + lane) * bits;
            const unsigned window =
                static_cast<unsigned>((r * lanes + lane) / valuesOfWindow * valuesOfWindow) * bits;
            unpacking.windowAt[(r * lanes + lane) / valuesOfWindow] = window / 32 * wordSize;
            firstBit[std::size_t{lane}] = bit - window / 32 * 32;
        });
        const Words bytes = (firstBit >> 3) * 0x01010101U + 0x03020100U;
        const Words ordered = bytes ^ (bigEndian ? 0x03030303U : 0U);
        unpacking.index[r] = W == Width::wholeBytes ? ordered | ~mask : ordered;
        unpacking.shift[r] = shiftsOf(W == Width::oneBit ? firstBit : firstBit & 7U);
    });
    return unpacking;
}

// Calls use(values so far, register) for all registers of values. Half a group is loaded before any
// of it is handed over, so that loads need not wait for the stores of what came before.
template <Width W, class Use>
CALCUT_INLINE void unpackGroups(const std::uint8_t* words, std::size_t groups, unsigned bits,
                                bool bigEndian, const Use& use) {
    constexpr std::size_t half = registersOfGroup / 2;
    const Unpacking unpacking = unpackingOf<W>(bits, bigEndian);
    for (std::size_t first = 0; first < groups * groupSize; first += groupSize) {
        Words single = {};
        if constexpr (W == Width::oneBit) {
            std::uint32_t word;
            std::memcpy(&word, words, sizeof word);
            single += bigEndian ? __builtin_bswap32(word) : word;
        }
        unrolled<2>([&](auto h) {
            Words loaded[half];
            unrolled<half>([&](auto r) {
                if constexpr (W == Width::oneBit) {
                    loaded[r] = single;
                } else {
                    const std::size_t window = (h * half + r) * windows;
                    loaded[r] = loadWindows(words + unpacking.windowAt[window],
                                            words + unpacking.windowAt[window + windows - 1]);
                }
            });
            unrolled<half>([&](auto r) {
                const std::size_t place = h * half + r;
                Words values = loaded[r];
                if constexpr (W != Width::oneBit) {
                    values = lookUp(values, unpacking.index[place]);
                }
                if constexpr (W != Width::wholeBytes) {
                    values = shiftRight(values, unpacking.shift[place]) & unpacking.mask;
                }
                use(first + place * lanes, values);
            });
        });
        words += bits * wordSize;
    }
}

template <class Use>
CALCUT_INLINE void unpackGroups(const std::uint8_t* words, std::size_t groups, unsigned bits,
                                bool bigEndian, const Use& use) {
    if (bits == 1) {
        // With constants, since not every compiler takes the choice out of the loop.
        bigEndian ? unpackGroups<Width::oneBit>(words, groups, 1, true, use)
                  : unpackGroups<Width::oneBit>(words, groups, 1, false, use);
    } else if (bits % 8 == 0) {
        unpackGroups<Width::wholeBytes>(words, groups, bits, bigEndian, use);
    } else {
        unpackGroups<Width::anyBits>(words, groups, bits, bigEndian, use);
    }
}

static void unpackUints(const std::uint8_t* words, std::size_t groups, unsigned bits,
                        bool bigEndian, std::uint8_t* dest) {
    if (bits > maxWindowBits) {
        portableKernels.unpackUints(words, groups, bits, bigEndian, dest);
        return;
    }
    unpackGroups(
        words, groups, bits,
        bigEndian, [=](std::size_t i, Words values) __attribute__((always_inline)) {
            store(dest + i * wordSize, values);
        });
}

CALCUT_INLINE Floats fixedPoint(Words values, float scale, float offset) {
    // Below 2^31, so that a signed conversion gives the same.
    return offset + scale * __builtin_convertvector(reinterpret_cast<SignedWords>(values), Floats);
}

static void unpackFloats(const std::uint8_t* words, std::size_t groups, unsigned bits, float scale,
                         float offset, std::uint8_t* dest) {
    if (bits > maxWindowBits) {
        portableKernels.unpackFloats(words, groups, bits, scale, offset, dest);
        return;
    }
    unpackGroups(
        words, groups, bits, true, [=](std::size_t i, Words values) __attribute__((always_inline)) {
            store(dest + i * sizeof(float),
                  reinterpret_cast<Words>(fixedPoint(values, scale, offset)));
        });
}

static void toFixedPoint(const std::uint32_t* values, std::size_t count, float scale, float offset,
                         std::uint8_t* floats) {
    for (; count >= wordsAtOnce; count -= wordsAtOnce) {
        Words loaded[wordsAtOnce / lanes];
        unrolled<wordsAtOnce / lanes>([&](auto r) { loaded[r] = load(values + r * lanes); });
        unrolled<wordsAtOnce / lanes>([&](auto r) {
            store(floats + r * registerSize,
                  reinterpret_cast<Words>(fixedPoint(loaded[r], scale, offset)));
        });
        values += wordsAtOnce;
        floats += wordsAtOnce * sizeof(float);
    }
    portableKernels.toFixedPoint(values, count, scale, offset, floats);
}

constexpr std::size_t bitsOfWindow = windowSize * 8;
constexpr std::size_t registersOfBits = bitsOfWindow / registerSize;

// Where the byte of each bit of a window stands.
struct BitBytes {
    std::uint8_t index[bitsOfWindow];
};
constexpr BitBytes bitBytes = [] {
    BitBytes bytes{};
    for (std::size_t i = 0; i < bitsOfWindow; ++i) {
        bytes.index[i] = static_cast<std::uint8_t>(i / 8 ^ 3U);
    }
    return bytes;
}();

static void spreadBits(const std::uint8_t* words, std::size_t count, std::uint8_t* bytes) {
    Words index[registersOfBits];
    unrolled<registersOfBits>([&](auto r) { index[r] = load(bitBytes.index + r * registerSize); });
    Bytes bitOfLane = {};
    unrolled<registerSize>([&](auto lane) {
        bitOfLane[std::size_t{lane}] = static_cast<std::uint8_t>(1U << lane % 8);
    });
    const auto spread = [&](const std::uint8_t* window, std::uint8_t* to)
        __attribute__((always_inline)) {
        const Words loaded = loadWindows(window, window);
        unrolled<registersOfBits>([&](auto r) {
            store(
                to + r * registerSize,
                reinterpret_cast<Words>(
                    sharesBits(reinterpret_cast<Bytes>(lookUp(loaded, index[r])), bitOfLane) & 1));
        });
    };
    std::size_t i = 0;
    for (; i + bitsOfWindow <= count; i += bitsOfWindow) {
        spread(words + i / 8, bytes + i);
    }
    if (i < count) {
        std::uint8_t last[windowSize] = {};
        std::uint8_t spreadLast[bitsOfWindow];
        std::memcpy(last, words + i / 8, (count - i + 31) / 32 * wordSize);
        spread(last, spreadLast);
        std::memcpy(bytes + i, spreadLast, count - i);
    }
}

// A word of exponent field e is the machine's float of exponent field e - 1: one subtraction on the
// magnitude, with the sign put in front. That holds for e from 2 on, for -2^31 (an infinity) and,
// with saturation, for 0. The words between 0 and e = 2 follow the general rule.
constexpr std::uint32_t signBit = 0x80000000U;
constexpr std::uint32_t exponentOne = 1U << 23;

// Out of line, where it takes no registers from the loop that seldom calls it.
[[gnu::noinline]] static void decodeFloatsByRule(const std::uint8_t* source, std::size_t count,
                                                 std::uint8_t* dest) {
    for (std::size_t i = 0; i < count; ++i) {
        float value;
        vantric_fromRXFloat(source + i * wordSize, &value);
        std::memcpy(dest + i * wordSize, &value, sizeof value);
    }
}

static void decodeFloats(const std::uint8_t* source, std::size_t count, std::uint8_t* dest) {
    for (; count >= wordsAtOnce; count -= wordsAtOnce) {
        Words floats[wordsAtOnce / lanes];
        Words smallest = ~Words{};  // magnitude less one, so that 0 is not among the small ones
        unrolled<wordsAtOnce / lanes>([&](auto r) {
            const Words word = swapBytes(load(source + r * registerSize));
            const Words size = magnitude(word);
            floats[r] =
                select(Words{} + signBit, word, subtractSaturating(size, Words{} + exponentOne));
            smallest = minimum(smallest, size - 1U);
        });
        if (anySet(reinterpret_cast<Words>(smallest < 2 * exponentOne - 1U))) {
            decodeFloatsByRule(source, wordsAtOnce, dest);
        } else {
            unrolled<wordsAtOnce / lanes>(
                [&](auto r) { store(dest + r * registerSize, floats[r]); });
        }
        source += wordsAtOnce * wordSize;
        dest += wordsAtOnce * wordSize;
    }
    decodeFloatsByRule(source, count, dest);
}

static void swapWords(const std::uint8_t* source, std::size_t count, std::uint8_t* dest) {
    for (; count >= wordsAtOnce; count -= wordsAtOnce) {
        Words loaded[wordsAtOnce / lanes];
        unrolled<wordsAtOnce / lanes>([&](auto r) { loaded[r] = load(source + r * registerSize); });
        unrolled<wordsAtOnce / lanes>(
            [&](auto r) { store(dest + r * registerSize, swapBytes(loaded[r])); });
        source += wordsAtOnce * wordSize;
        dest += wordsAtOnce * wordSize;
    }
    portableKernels.swapWords(source, count, dest);
}

constexpr DecodingKernels kernels = {unpackUints, unpackFloats, toFixedPoint,
                                     spreadBits,  decodeFloats, swapWords};

}  // namespace vantric::CALCUT_INSTRUCTION_SET
