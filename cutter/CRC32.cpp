#include "cutter/CRC32.h"

#include <array>
#include <cstddef>

#include "cutter/LittleEndian.h"

namespace {

constexpr std::uint32_t reflectedPolynomial = 0xEDB88320U;

constexpr std::uint32_t remainderOf(std::uint32_t byte) {
    std::uint32_t remainder = byte;
    for (int bit = 0; bit < 8; ++bit) {
        remainder = (remainder >> 1) ^ ((remainder & 1U) != 0 ? reflectedPolynomial : 0U);
    }
    return remainder;
}

}  // namespace

// A plain array that the linker may let a host replace, hence not constexpr itself.
#define CALCUT_CRC_4(i) \
    remainderOf(i), remainderOf((i) + 1), remainderOf((i) + 2), remainderOf((i) + 3)
#define CALCUT_CRC_16(i) \
    CALCUT_CRC_4(i), CALCUT_CRC_4((i) + 4), CALCUT_CRC_4((i) + 8), CALCUT_CRC_4((i) + 12)
#define CALCUT_CRC_64(i) \
    CALCUT_CRC_16(i), CALCUT_CRC_16((i) + 16), CALCUT_CRC_16((i) + 32), CALCUT_CRC_16((i) + 48)
constinit std::uint32_t crc32table[256] = {CALCUT_CRC_64(0U), CALCUT_CRC_64(64U),
                                           CALCUT_CRC_64(128U), CALCUT_CRC_64(192U)};
#undef CALCUT_CRC_4
#undef CALCUT_CRC_16
#undef CALCUT_CRC_64

namespace {

// The checksum of a byte waits for that of the byte before it, so one stretch alone keeps the load
// ports idle. Several stretches of equal length are summed side by side and joined afterwards:
// appending n bytes multiplies a checksum by x^(8n) modulo the polynomial.
constexpr std::size_t stretches = 10;
constexpr std::size_t shortInput = 512;

std::uint32_t step(std::uint32_t crc, std::uint8_t byte) {
    return crc32table[(crc ^ byte) & 0xFFU] ^ (crc >> 8);
}

// As many bytes as fit into a sum are put into it at once; each then takes its step as it reaches
// the low end. That leaves one load for the table and nothing else to each byte.
constexpr std::size_t bytesAtOnce = sizeof(std::uint32_t);

// Product of two polynomials modulo the CRC polynomial; bit 31 is the coefficient of x^0.
std::uint32_t multiply(std::uint32_t a, std::uint32_t b) {
    const std::uint32_t polynomial = crc32table[0x80];
    std::uint32_t product = 0;
    for (; a != 0; a <<= 1) {
        if ((a & 0x80000000U) != 0) {
            product ^= b;
        }
        b = (b >> 1) ^ ((b & 1U) != 0 ? polynomial : 0U);
    }
    return product;
}

// x^(8 * bytes) modulo the CRC polynomial, by squaring.
std::uint32_t shiftByBytes(std::size_t bytes) {
    std::uint32_t result = 0x80000000U;  // x^0
    std::uint32_t power = 0x00800000U;   // x^8
    for (; bytes != 0; bytes >>= 1) {
        if ((bytes & 1U) != 0) {
            result = multiply(power, result);
        }
        power = multiply(power, power);
    }
    return result;
}

// stretch is a multiple of bytesAtOnce.
std::uint32_t sumSideBySide(const std::uint8_t* data, std::size_t stretch, std::uint32_t crc) {
    std::array<std::uint32_t, stretches> sums = {crc};
    for (std::size_t i = 0; i < stretch; i += bytesAtOnce) {
        for (std::size_t s = 0; s < stretches; ++s) {
            sums[s] ^= littleEndian32(data + s * stretch + i);
        }
        for (std::size_t byte = 0; byte < bytesAtOnce; ++byte) {
            for (std::uint32_t& sum : sums) {
                sum = step(sum, 0);
            }
        }
    }
    const std::uint32_t shift = shiftByBytes(stretch);
    std::uint32_t joined = sums[0];
    for (std::size_t s = 1; s < stretches; ++s) {
        joined = multiply(shift, joined) ^ sums[s];
    }
    return joined;
}

}  // namespace

// Hosts link against this signature. NOLINTNEXTLINE(readability-non-const-parameter)
std::uint32_t calc_crc32(unsigned char* data, unsigned long length) {
    if (length == 0) {
        return 0;
    }
    const std::uint8_t* next = data;
    const std::uint8_t* end = data + length;
    std::uint32_t crc = 0xFFFFFFFFU;
    if (length >= shortInput) {
        const std::size_t stretch = length / (stretches * bytesAtOnce) * bytesAtOnce;
        crc = sumSideBySide(next, stretch, crc);
        next += stretch * stretches;
    }
    for (; next != end; ++next) {
        crc = step(crc, *next);
    }
    return crc ^ 0xFFFFFFFFU;
}
