#pragma once

// The kernels of payloads by byte look-up. A value of up to 25 bits lies within four bytes; a look-up
// brings these into the lane of the value, in whichever byte order, a shift and a mask do the rest.

#include "calcut/vantric_rx.h"
#include "calibration/lanes.h"
#include "calibration/packed/kernels.h"

namespace vantric::CALCUT_INSTRUCTION_SET {

// Four values and the bits in front of them in their first word fit into one window.
constexpr unsigned maxWindowBits = 25;
constexpr std::size_t valuesOfWindow = 4;
constexpr std::size_t wordSize = sizeof(std::uint32_t);
constexpr std::size_t registersOfGroup = groupSize / lanes;

// How the values of a group get into their lanes.
struct Unpacking {
    std::size_t windowAt[groupSize / valuesOfWindow];
    Bytes index[registersOfGroup];
    SignedWords shift[registersOfGroup];
    Words mask;
};

// Values of whole bytes need neither shift nor mask: the look-up leaves the other bytes 0.
template <bool WholeBytes>
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
        unpacking.index[r] = reinterpret_cast<Bytes>(WholeBytes ? ordered | ~mask : ordered);
        unpacking.shift[r] = shiftsOf(firstBit & 7U);
    });
    return unpacking;
}

// Calls use(value in the group, register) for all values. Half a group is loaded before any of it is
// handed over, so that loads need not wait for the stores of what came before.
template <bool WholeBytes, class Use>
CALCUT_INLINE void unpackGroup(const Unpacking& unpacking, const std::uint8_t* words,
                               const Use& use) {
    constexpr std::size_t half = registersOfGroup / 2;
    unrolled<2>([&](auto h) {
        Bytes loaded[half];
        unrolled<half>([&](auto r) {
            const std::size_t window = (h * half + r) * windows;
            loaded[r] = loadWindows(words + unpacking.windowAt[window],
                                    words + unpacking.windowAt[window + windows - 1]);
        });
        unrolled<half>([&](auto r) {
            constexpr std::size_t place = h * half + r;
            auto values = reinterpret_cast<Words>(lookUp(loaded[r], unpacking.index[place]));
            if constexpr (!WholeBytes) {
                values = shiftRight(values, unpacking.shift[place]) & unpacking.mask;
            }
            use(place * lanes, values);
        });
    });
}

template <bool WholeBytes, class Use>
CALCUT_INLINE void unpackGroups(const std::uint8_t* words, std::size_t groups, unsigned bits,
                                bool bigEndian, const Use& use) {
    const Unpacking unpacking = unpackingOf<WholeBytes>(bits, bigEndian);
    for (std::size_t g = 0; g < groups; ++g) {
        unpackGroup<WholeBytes>(
            unpacking, words, [&](std::size_t i, Words values)
                __attribute__((always_inline)) { use(g * groupSize + i, values); });
        words += bits * wordSize;
    }
}

template <class Use>
CALCUT_INLINE void unpackGroups(const std::uint8_t* words, std::size_t groups, unsigned bits,
                                bool bigEndian, const Use& use) {
    if (bits % 8 == 0) {
        unpackGroups<true>(words, groups, bits, bigEndian, use);
    } else {
        unpackGroups<false>(words, groups, bits, bigEndian, use);
    }
}

static void unpackUints(const std::uint8_t* words, std::size_t groups, unsigned bits,
                        bool bigEndian, std::uint8_t* dest) {
    if (bits > maxWindowBits) {
        portableKernels.unpackUints(words, groups, bits, bigEndian, dest);
        return;
    }
    unpackGroups(words, groups, bits, bigEndian,
                 [=](std::size_t i, Words values) __attribute__((always_inline)) {
                     store(dest + i * wordSize, values);
                 });
}

CALCUT_INLINE Floats fixedPoint(Words values, float scale, float offset) {
    // Below 2^31, so that a signed conversion gives the same.
    return offset +
           scale * __builtin_convertvector(reinterpret_cast<SignedWords>(values), Floats);
}

static void unpackFloats(const std::uint8_t* words, std::size_t groups, unsigned bits, float scale,
                         float offset, std::uint8_t* dest) {
    if (bits > maxWindowBits) {
        portableKernels.unpackFloats(words, groups, bits, scale, offset, dest);
        return;
    }
    unpackGroups(words, groups, bits, true,
                 [=](std::size_t i, Words values) __attribute__((always_inline)) {
                     store(dest + i * sizeof(float), fixedPoint(values, scale, offset));
                 });
}

static void toFixedPoint(const std::uint32_t* values, std::size_t count, float scale, float offset,
                         float* floats) {
    constexpr std::size_t atOnce = 4 * lanes;
    std::size_t i = 0;
    for (; i + atOnce <= count; i += atOnce) {
        Words loaded[atOnce / lanes];
        unrolled<atOnce / lanes>([&](auto r) { loaded[r] = load<Words>(values + i + r * lanes); });
        unrolled<atOnce / lanes>([&](auto r) {
            store(floats + i + r * lanes, fixedPoint(loaded[r], scale, offset));
        });
    }
    for (; i < count; ++i) {
        floats[i] = offset + scale * static_cast<float>(static_cast<std::int32_t>(values[i]));
    }
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
    Bytes index[registersOfBits];
    unrolled<registersOfBits>(
        [&](auto r) { index[r] = load<Bytes>(bitBytes.index + r * registerSize); });
    Bytes bitOfLane = {};
    unrolled<registerSize>([&](auto lane) {
        bitOfLane[std::size_t{lane}] = static_cast<std::uint8_t>(1U << lane % 8);
    });
    const auto spread = [&](const std::uint8_t* window, std::uint8_t* to)
        __attribute__((always_inline)) {
        const Bytes loaded = loadWindows(window, window);
        unrolled<registersOfBits>([&](auto r) {
            store(to + r * registerSize, sharesBits(lookUp(loaded, index[r]), bitOfLane) & 1);
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

static void decodeFloats(const std::uint8_t* source, std::size_t count, std::uint8_t* dest) {
    constexpr std::size_t registers = 4;
    constexpr std::size_t atOnce = registers * lanes;
    std::size_t i = 0;
    const auto byRule = [&](std::size_t end) {
        for (; i < end; ++i) {
            float value;
            vantric_fromRXFloat(source + i * wordSize, &value);
            std::memcpy(dest + i * wordSize, &value, sizeof value);
        }
    };
    while (count - i >= atOnce) {
        Words floats[registers];
        Words smallest = ~Words{};  // magnitude less one, so that 0 is not among the small ones
        unrolled<registers>([&](auto r) {
            const Words word =
                swapBytes(load<Words>(source + (i + r * lanes) * wordSize));
            const Words size = magnitude(word);
            floats[r] =
                select(Words{} + signBit, word, subtractSaturating(size, Words{} + exponentOne));
            smallest = minimum(smallest, size - 1U);
        });
        if (anySet(reinterpret_cast<Words>(smallest < 2 * exponentOne - 1U))) {
            byRule(i + atOnce);
            continue;
        }
        unrolled<registers>(
            [&](auto r) { store(dest + (i + r * lanes) * wordSize, floats[r]); });
        i += atOnce;
    }
    byRule(count);
}

static void swapWords(const std::uint8_t* source, std::size_t count, std::uint8_t* words) {
    constexpr std::size_t registers = 4;
    constexpr std::size_t atOnce = registers * lanes;
    std::size_t i = 0;
    for (; i + atOnce <= count; i += atOnce) {
        Words loaded[registers];
        unrolled<registers>(
            [&](auto r) { loaded[r] = load<Words>(source + (i + r * lanes) * wordSize); });
        unrolled<registers>(
            [&](auto r) { store(words + (i + r * lanes) * wordSize, swapBytes(loaded[r])); });
    }
    portableKernels.swapWords(source + i * wordSize, count - i, words + i * wordSize);
}

constexpr DecodingKernels kernels = {unpackUints, unpackFloats, toFixedPoint,
                                     spreadBits,  decodeFloats, swapWords};

}  // namespace vantric::CALCUT_INSTRUCTION_SET
