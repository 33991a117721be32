#include "calibration/packed/Uncompressed.h"

#include <algorithm>
#include <cmath>
#include <cstddef>

namespace vantric {

namespace {

constexpr std::uint32_t mantissaBits = 23;
constexpr std::uint32_t mantissaMask = (1U << mantissaBits) - 1;
constexpr float mantissaOne = 8388608.0F;      // 2^23
constexpr float mantissaUnit = 5.9604645e-8F;  // 2^-24
constexpr int exponentBias = 127;
constexpr int lastPlainExponent = 127;  // 2^128 does not fit into a float
constexpr std::uint32_t signBit = 0x80000000U;

// Floats are decoded in groups that the compiler turns into vector code.
constexpr std::size_t group = 32;

std::uint32_t magnitudeOf(std::uint32_t word) {
    return (word & signBit) != 0 ? 0U - word : word;
}

// An RX word of exponent field e is the machine's float of exponent field e - 1: one subtraction
// on the word, sign put in front. That holds for e from 2 to 255 and, with nothing subtracted,
// for 0. The rest (results below the smallest normal float, and -2^31) follows the general rule.
std::uint32_t machineBits(std::uint32_t word, std::uint32_t magnitude) {
    const std::uint32_t shifted = magnitude == 0 ? 0U : magnitude - (1U << mantissaBits);
    return shifted | (word & signBit);
}

// Nonzero unless machineBits holds for the word.
std::uint32_t isExceptional(std::uint32_t magnitude) {
    constexpr std::uint32_t smallestPlain = 2U << mantissaBits;
    return static_cast<std::uint32_t>(magnitude - 1U < smallestPlain - 1U) | (magnitude & signBit);
}

}  // namespace

void decodeRXFloats(const std::uint8_t* src, std::uint64_t count, std::uint8_t* dest) {
    std::uint64_t i = 0;
    for (; i + group <= count; i += group) {
        std::uint32_t bits[group];
        std::uint32_t exceptional = 0;
        for (std::size_t k = 0; k < group; ++k) {
            const std::uint32_t word = bigEndian32(src + 4 * (i + k));
            const std::uint32_t magnitude = magnitudeOf(word);
            exceptional |= isExceptional(magnitude);
            bits[k] = machineBits(word, magnitude);
        }
        if (exceptional != 0) {
            float values[group];
            for (std::size_t k = 0; k < group; ++k) {
                vantric_fromRXFloat(src + 4 * (i + k), values + k);
            }
            std::memcpy(bits, values, sizeof bits);
        }
        std::memcpy(dest + 4 * i, bits, sizeof bits);
    }
    for (; i < count; ++i) {
        float value;
        vantric_fromRXFloat(src + 4 * i, &value);
        std::memcpy(dest + 4 * i, &value, sizeof value);
    }
}

void decodeRXUint16s(const std::uint8_t* src, std::uint64_t count, std::uint8_t* dest) {
    for (std::uint64_t i = 0; i < count; ++i) {
        const std::uint16_t value = bigEndian16(src + 2 * i);
        std::memcpy(dest + 2 * i, &value, sizeof value);
    }
}

void decodeRXUint32s(const std::uint8_t* src, std::uint64_t count, std::uint8_t* dest) {
    for (std::uint64_t i = 0; i < count; ++i) {
        const std::uint32_t value = bigEndian32(src + 4 * i);
        std::memcpy(dest + 4 * i, &value, sizeof value);
    }
}

}  // namespace vantric

using namespace vantric;

uint32_t vantric_fromRXUint16(const uint8_t* src, uint16_t* out) {
    *out = bigEndian16(src);
    return VANTRIC_OK;
}

uint32_t vantric_fromRXUint32(const uint8_t* src, uint32_t* out) {
    *out = bigEndian32(src);
    return VANTRIC_OK;
}

uint32_t vantric_fromRXInt32(const uint8_t* src, int32_t* out) {
    *out = static_cast<std::int32_t>(bigEndian32(src));
    return VANTRIC_OK;
}

int32_t vantric_decodeRXInt32(int32_t value) {
    return value;
}

float vantric_decodeRXFloat(int32_t word) {
    const auto sign = static_cast<float>((word > 0) - (word < 0));
    const std::uint32_t magnitude = magnitudeOf(static_cast<std::uint32_t>(word));
    const float mantissa =
        (static_cast<float>(magnitude & mantissaMask) + mantissaOne) * mantissaUnit;
    const int exponent = static_cast<int>(magnitude >> mantissaBits) - exponentBias;
    if (exponent > lastPlainExponent) {
        // In two steps, so that the intermediate stays finite.
        return sign * mantissa * std::exp2(static_cast<float>(exponent - 1)) * 2.0F;
    }
    return sign * mantissa * std::ldexp(1.0F, exponent);
}

uint32_t vantric_fromRXFloat(const uint8_t* src, float* out) {
    *out = vantric_decodeRXFloat(static_cast<std::int32_t>(bigEndian32(src)));
    return VANTRIC_OK;
}

float vantric_decodeFromRXFixedPoint(uint32_t value, float scale, float offset) {
    return offset + scale * static_cast<float>(value);
}
