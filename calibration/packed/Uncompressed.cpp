#include "calibration/packed/Uncompressed.h"

#include <cmath>
#include <cstddef>

#include "calibration/packed/DecodingKernels.h"

namespace vantric {

namespace {

constexpr std::uint32_t mantissaBits = 23;
constexpr std::uint32_t mantissaMask = (1U << mantissaBits) - 1;
constexpr float mantissaOne = 8388608.0F;      // 2^23
constexpr float mantissaUnit = 5.9604645e-8F;  // 2^-24
constexpr int exponentBias = 127;
constexpr int lastPlainExponent = 127;  // 2^128 does not fit into a float

std::uint32_t magnitudeOf(std::uint32_t word) {
    return (word & 0x80000000U) != 0 ? ~word + 1 : word;
}

}  // namespace

void decodeRXFloats(const std::uint8_t* src, std::uint64_t count, std::uint8_t* dest) {
    decodingKernels().decodeFloats(src, count, dest);
}

void decodeRXUint16s(const std::uint8_t* src, std::uint64_t count, std::uint8_t* dest) {
    for (std::uint64_t i = 0; i < count; ++i) {
        const std::uint16_t value = bigEndian16(src + 2 * i);
        std::memcpy(dest + 2 * i, &value, sizeof value);
    }
}

void decodeRXUint32s(const std::uint8_t* src, std::uint64_t count, std::uint8_t* dest) {
    decodingKernels().swapWords(src, count, dest);
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
