#include <algorithm>
#include <bit>
#include <cmath>
#include <limits>
#include <stdexcept>

#include "writer/writer.h"

namespace calcut::writer {

// The format's float is an IEEE single whose word is read as a number of its own: exponent field
// one above the IEEE one (its mantissa counts from 0.5, not from 1), no sign bit but the two's
// complement of the whole word, and no special values.
std::uint32_t encodeRXFloat(float value) {
    const std::uint32_t bits = std::bit_cast<std::uint32_t>(value);
    const bool negative = (bits >> 31) != 0;
    const std::uint32_t exponent = (bits >> 23) & 0xFF;
    const std::uint32_t fraction = bits & 0x7FFFFF;

    std::uint32_t magnitude = 0;
    if (exponent == 0xFF) {
        magnitude = 0x7FFFFFFF;
    } else if (exponent > 0) {
        magnitude = ((exponent + 1) << 23) | fraction;
    } else if (fraction >= (1U << 22)) {
        magnitude = (1U << 23) | ((fraction << 1) & 0x7FFFFF);
    } else if (fraction >= (1U << 21)) {
        // Word 0 means 0.0, so 2^-128 itself is written as its neighbour, which rounds back to it.
        magnitude = std::max(1U, (fraction << 2) & 0x7FFFFF);
    } else if (fraction > (1U << 20)) {
        magnitude = 1;
    }
    return negative ? 0U - magnitude : magnitude;
}

std::vector<std::uint32_t> packBits(std::span<const std::uint32_t> values, unsigned bits) {
    if (bits < 1 || bits > 31) {
        throw std::invalid_argument("packed values need 1 to 31 bits");
    }
    const std::uint64_t mask = (std::uint64_t{1} << bits) - 1;
    std::vector<std::uint32_t> words;
    words.reserve((values.size() * bits + 31) / 32);
    std::uint64_t pending = 0;
    unsigned pendingBits = 0;
    for (const std::uint32_t value : values) {
        pending |= (value & mask) << pendingBits;
        pendingBits += bits;
        if (pendingBits >= 32) {
            words.push_back(static_cast<std::uint32_t>(pending));
            pending >>= 32;
            pendingBits -= 32;
        }
    }
    if (pendingBits > 0) {
        words.push_back(static_cast<std::uint32_t>(pending));
    }
    return words;
}

FixedPoint fixedPointFor(float low, float high, unsigned bits) {
    if (bits < 1 || bits > 31) {
        throw std::invalid_argument("packed values need 1 to 31 bits");
    }
    const double steps = static_cast<double>((std::uint64_t{1} << bits) - 1);
    const double scale = (static_cast<double>(high) - static_cast<double>(low)) / steps;
    const double largest = std::numeric_limits<float>::max();
    return {static_cast<float>(std::clamp(scale, -largest, largest)), low};
}

namespace {

float decode(std::uint32_t integer, const FixedPoint& fixedPoint) {
    return fixedPoint.offset + fixedPoint.scale * static_cast<float>(integer);
}

double distance(float a, float b) {
    return std::fabs(static_cast<double>(a) - static_cast<double>(b));
}

}  // namespace

// The decoding is monotone, also where single precision makes it a staircase, so bisection finds
// the nearest integer where a division would be off.
std::uint32_t quantise(float value, const FixedPoint& fixedPoint, unsigned bits) {
    if (bits < 1 || bits > 31) {
        throw std::invalid_argument("packed values need 1 to 31 bits");
    }
    if (std::isnan(value) || fixedPoint.scale == 0.0F) {
        return 0;
    }
    const bool falling = fixedPoint.scale < 0.0F;
    std::uint32_t low = 0;
    std::uint32_t high = (std::uint32_t{1} << bits) - 1;
    while (low < high) {
        const std::uint32_t middle = low + (high - low) / 2;
        const float decoded = decode(middle, fixedPoint);
        if (falling ? decoded <= value : decoded >= value) {
            high = middle;
        } else {
            low = middle + 1;
        }
    }
    if (low > 0 &&
        distance(decode(low - 1, fixedPoint), value) <= distance(decode(low, fixedPoint), value)) {
        return low - 1;
    }
    return low;
}

}  // namespace calcut::writer
