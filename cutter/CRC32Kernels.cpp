#include "cutter/CRC32Kernels.h"

#include "cutter/LittleEndian.h"

namespace checksum {

namespace {

// The checksum of a byte waits for that of the byte before it, so one stretch alone keeps the load
// ports idle. Several stretches of equal length are summed side by side and joined afterwards:
// appending n bytes multiplies a checksum by x^(8n) modulo the polynomial.
constexpr std::size_t stretches = 10;

// As many bytes as fit into a sum are put into it at once; each then takes its step as it reaches
// the low end. That leaves one load for the table and nothing else to each byte.
constexpr std::size_t bytesAtOnce = sizeof(std::uint32_t);

std::uint32_t step(const std::uint32_t* table, std::uint32_t sum, std::uint8_t byte) {
    return table[(sum ^ byte) & 0xFFU] ^ (sum >> 8);
}

}  // namespace

std::uint32_t byBytes(const std::uint32_t* table, std::uint32_t sum, const std::uint8_t* data,
                      std::size_t length) {
    for (std::size_t i = 0; i < length; ++i) {
        sum = step(table, sum, data[i]);
    }
    return sum;
}

std::uint32_t sideBySide(std::uint32_t sum, const std::uint8_t* data, std::size_t length) {
    const std::size_t stretch = length / (stretches * bytesAtOnce) * bytesAtOnce;
    std::array<std::uint32_t, stretches> sums = {sum};
    for (std::size_t i = 0; i < stretch; i += bytesAtOnce) {
#pragma GCC unroll 10
        for (std::size_t s = 0; s < stretches; ++s) {
            sums[s] ^= littleEndian32(data + s * stretch + i);
        }
#pragma GCC unroll 4
        for (std::size_t byte = 0; byte < bytesAtOnce; ++byte) {
#pragma GCC unroll 10
            for (std::uint32_t& each : sums) {
                each = step(standardTable.data(), each, 0);
            }
        }
    }
    const std::uint32_t shift = shiftByBytes(stretch);
    std::uint32_t joined = sums[0];
    for (std::size_t s = 1; s < stretches; ++s) {
        joined = multiply(shift, joined) ^ sums[s];
    }
    const std::size_t done = stretch * stretches;
    return byBytes(standardTable.data(), joined, data + done, length - done);
}

}  // namespace checksum
