#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

/// The ways to sum bytes up. All take the sum so far and hand on the new one, both before the
/// complement that ends a checksum, and all but byBytes stand for the standard table.
namespace checksum {

using Table = std::array<std::uint32_t, 256>;

/// By any table, one byte after the other.
std::uint32_t byBytes(const std::uint32_t* table, std::uint32_t sum, const std::uint8_t* data,
                      std::size_t length);

/// By the standard table, several stretches of the bytes at a time.
std::uint32_t sideBySide(std::uint32_t sum, const std::uint8_t* data, std::size_t length);

/// Whether this processor has instructions for it, and the sum by these.
bool hasInstructions();
std::uint32_t byInstructions(std::uint32_t sum, const std::uint8_t* data, std::size_t length);

// Polynomials modulo the one of the checksum, reflected: bit 31 is the coefficient of x^0.

constexpr std::uint32_t polynomial = 0xEDB88320U;
constexpr std::uint32_t one = 0x80000000U;

constexpr std::uint32_t timesX(std::uint32_t a) {
    return (a >> 1) ^ ((a & 1U) != 0 ? polynomial : 0U);
}

constexpr std::uint32_t remainderOf(std::uint32_t byte) {
    for (int bit = 0; bit < 8; ++bit) {
        byte = timesX(byte);
    }
    return byte;
}

constexpr Table tableOfPolynomial() {
    Table table{};
    for (std::uint32_t byte = 0; byte < table.size(); ++byte) {
        table[byte] = remainderOf(byte);
    }
    return table;
}

constexpr Table standardTable = tableOfPolynomial();

constexpr std::uint32_t multiply(std::uint32_t a, std::uint32_t b) {
    std::uint32_t product = 0;
    for (; a != 0; a = (a & ~one) << 1) {
        product ^= (a & one) != 0 ? b : 0U;
        b = timesX(b);
    }
    return product;
}

constexpr std::array<std::uint32_t, 64> squaresOfX() {
    std::array<std::uint32_t, 64> powers = {one >> 1};
    for (std::size_t k = 1; k < powers.size(); ++k) {
        powers[k] = multiply(powers[k - 1], powers[k - 1]);
    }
    return powers;
}

/// squares[k] is x^(2^k).
constexpr auto squares = squaresOfX();

constexpr std::uint32_t powerOfX(std::uint64_t exponent) {
    std::uint32_t power = one;
    for (std::size_t k = 0; exponent != 0; exponent >>= 1, ++k) {
        if ((exponent & 1U) != 0) {
            power = multiply(squares[k], power);
        }
    }
    return power;
}

/// What to multiply a sum with when that many bytes follow.
constexpr std::uint32_t shiftByBytes(std::size_t bytes) {
    return powerOfX(std::uint64_t{bytes} * 8);
}

}  // namespace checksum
