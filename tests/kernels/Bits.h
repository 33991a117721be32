// Results as bits, to compare them. Any NaN equals any NaN: which payload an operation hands on
// depends on the machine and on the order of its operands.
#pragma once

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdint>
#include <limits>
#include <random>
#include <vector>

namespace kernels {

using Floats = std::vector<float>;
using Words = std::vector<std::uint32_t>;

inline constexpr float inf = std::numeric_limits<float>::infinity();
inline constexpr float nan = std::numeric_limits<float>::quiet_NaN();
inline constexpr float untouched = -12345.0F;
inline constexpr std::uint32_t untouchedWord = 0xDEADBEEFU;

inline std::uint32_t bitsOf(float value) {
    return std::isnan(value) ? 0x7FC00000U : std::bit_cast<std::uint32_t>(value);
}

inline Words bitsOf(const float* values, std::size_t count) {
    Words bits(count);
    std::transform(values, values + count, bits.begin(), [](float x) { return bitsOf(x); });
    return bits;
}

// The same on every machine.
class Random {
  public:
    std::uint32_t word() { return static_cast<std::uint32_t>(generator_()); }
    float between(float low, float high) {
        return low + (high - low) * (static_cast<float>(word() >> 8) * 0x1p-24F);
    }
    template <class Element>
    std::vector<Element> many(std::size_t count) {
        std::vector<Element> result(count);
        std::generate(result.begin(), result.end(), [&] { return static_cast<Element>(word()); });
        return result;
    }

  private:
    std::mt19937 generator_{20240229};
};

/// FNV-1a of results whose bits may not depend on the machine.
class Hash {
  public:
    void add(const Words& words) {
        for (const std::uint32_t word : words) {
            for (unsigned shift = 0; shift < 32; shift += 8) {
                value_ = (value_ ^ ((word >> shift) & 0xFF)) * 0x100000001B3ULL;
            }
        }
    }
    [[nodiscard]] std::uint64_t value() const { return value_; }

  private:
    std::uint64_t value_ = 0xCBF29CE484222325ULL;
};

}  // namespace kernels
