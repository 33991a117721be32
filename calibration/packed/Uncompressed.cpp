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

// Words that are put into host order and then decoded at once. So many that the reader does not
// catch up with stores that are still under way, since those were made in another width.
constexpr std::size_t chunk = 256;

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

// Whether machineBits does not hold for a word; a magnitude of 2^31 is negative here.
bool isExceptional(std::uint32_t magnitude) {
    constexpr std::int32_t smallestPlain = 2 << mantissaBits;
    return magnitude != 0 && static_cast<std::int32_t>(magnitude) < smallestPlain;
}

// False when some word is exceptional; dest then holds wrong values.
bool decodePlainFloats(const std::uint32_t* words, std::size_t count, std::uint8_t* dest) {
    std::uint32_t exceptional = 0;
    for (std::size_t i = 0; i < count; ++i) {
        const std::uint32_t magnitude = magnitudeOf(words[i]);
        const std::uint32_t bits = machineBits(words[i], magnitude);
        exceptional |= isExceptional(magnitude) ? 1U : 0U;
        std::memcpy(dest + i * sizeof bits, &bits, sizeof bits);
    }
    return exceptional == 0;
}

}  // namespace

void decodeRXFloats(const std::uint8_t* src, std::uint64_t count, std::uint8_t* dest) {
    for (std::uint64_t first = 0; first < count; first += chunk) {
        const auto size = static_cast<std::size_t>(std::min<std::uint64_t>(chunk, count - first));
        std::uint32_t words[chunk];
        decodeRXUint32s(src + first * sizeof *words, size, reinterpret_cast<std::uint8_t*>(words));
        std::uint8_t* to = dest + first * sizeof(float);
        if (!decodePlainFloats(words, size, to)) {
            for (std::size_t i = 0; i < size; ++i) {
                const float value = vantric_decodeRXFloat(static_cast<std::int32_t>(words[i]));
                std::memcpy(to + i * sizeof value, &value, sizeof value);
            }
        }
    }
}

void decodeRXUint16s(const std::uint8_t* src, std::uint64_t count, std::uint8_t* dest) {
    for (std::uint64_t i = 0; i < count; ++i) {
        const std::uint16_t value = bigEndian16(src + 2 * i);
        std::memcpy(dest + 2 * i, &value, sizeof value);
    }
}

void decodeRXUint32s(const std::uint8_t* src, std::uint64_t count, std::uint8_t* dest) {
    const auto decode = [&](std::uint64_t i) {
        const std::uint32_t value = bigEndian32(src + 4 * i);
        std::memcpy(dest + 4 * i, &value, sizeof value);
    };
    // Several to a round of the loop, which otherwise takes longer than the words.
    constexpr std::uint64_t stride = 8;
    std::uint64_t i = 0;
    for (; i + stride <= count; i += stride) {
        for (std::uint64_t k = 0; k < stride; ++k) {
            decode(i + k);
        }
    }
    for (; i < count; ++i) {
        decode(i);
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
