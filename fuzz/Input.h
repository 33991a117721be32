#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <vector>

namespace fuzz {

/// Values out of the fuzzer's bytes; zeros once they are used up.
class Input {
  public:
    Input(const std::uint8_t* data, std::size_t size) : next_(data), left_(size) {}

    [[nodiscard]] bool empty() const { return left_ == 0; }

    std::uint8_t byte() {
        if (left_ == 0) {
            return 0;
        }
        --left_;
        return *next_++;
    }

    /// A number from low to high, both included, at most 255 apart.
    unsigned between(unsigned low, unsigned high) { return low + byte() % (high - low + 1); }

    bool flag() { return (byte() & 1U) != 0; }

    std::uint32_t word() {
        std::uint32_t value = 0;
        for (int i = 0; i < 4; ++i) {
            value = (value << 8) | byte();
        }
        return value;
    }

    /// Any bit pattern: infinities, NaN and subnormals too.
    float anyFloat() {
        const std::uint32_t bits = word();
        float value;
        std::memcpy(&value, &bits, sizeof value);
        return value;
    }

    std::vector<std::uint8_t> bytes(std::size_t count) {
        const std::size_t taken = std::min(count, left_);
        std::vector<std::uint8_t> out(next_, next_ + taken);
        next_ += taken;
        left_ -= taken;
        out.resize(count);
        return out;
    }

  private:
    const std::uint8_t* next_;
    std::size_t left_;
};

}  // namespace fuzz
