#include "cutter/CRC32Kernels.h"

#if defined(__x86_64__)
#include <immintrin.h>
#elif defined(__aarch64__)
#include <asm/hwcap.h>
#include <sys/auxv.h>

#include <cstring>
#ifndef __clang__
#include <arm_acle.h>
#endif
#endif

namespace checksum {

#if defined(__x86_64__)

// Products of polynomials without carries. Sixteen bytes in a register are a polynomial whose
// highest power is the lowest bit. The product of two halves then comes out one power too low,
// which the factors make good.
namespace {

constexpr std::size_t block = sizeof(__m128i);
constexpr std::size_t blocksAtOnce = 4;  // enough to hide the latency of a product

constexpr long long factorOf(unsigned power) {
    const std::uint64_t highHalf = std::uint64_t{powerOfX(power - 1)} << 32;
    return static_cast<long long>(highHalf);
}

template <unsigned Power>
constexpr long long factor = factorOf(Power);

// The polynomial with its highest power, and x^64 divided by it; 33 bits each.
constexpr std::uint64_t divisor = std::uint64_t{polynomial} << 1 | 1U;

constexpr std::uint64_t divideByPolynomial() {
    std::uint64_t quotient = 0;
    std::uint64_t rest = 1;  // x^32 of what is divided is the lowest bit
    for (unsigned bit = 0; bit <= 32; ++bit) {
        quotient |= (rest & 1U) << bit;
        rest = (rest ^ ((rest & 1U) != 0 ? divisor : 0U)) >> 1;
    }
    return quotient;
}

constexpr std::uint64_t reciprocal = divideByPolynomial();

[[gnu::target("pclmul"), gnu::always_inline]] inline __m128i load(const std::uint8_t* data) {
    return _mm_loadu_si128(reinterpret_cast<const __m128i*>(data));
}

// The factors by which both halves of a register move on by so many bytes.
template <unsigned Bytes>
[[gnu::target("pclmul"), gnu::always_inline]] inline __m128i moveBy() {
    return _mm_set_epi64x(factor<8 * Bytes>, factor<8 * Bytes + 64>);
}

[[gnu::target("pclmul"), gnu::always_inline]] inline __m128i moveOn(__m128i sum, __m128i factors,
                                                                    __m128i next) {
    const __m128i moved = _mm_xor_si128(_mm_clmulepi64_si128(sum, factors, 0x00),
                                        _mm_clmulepi64_si128(sum, factors, 0x11));
    return _mm_xor_si128(moved, next);
}

// The remainder of sixteen bytes: to 96 bits, to 64, and the last 32 by the reciprocal.
[[gnu::target("pclmul"), gnu::always_inline]] inline std::uint32_t remainder(__m128i sum) {
    const __m128i factors = _mm_set_epi64x(factor<64>, factor<96>);
    const __m128i division =
        _mm_set_epi64x(static_cast<long long>(divisor), static_cast<long long>(reciprocal));
    const __m128i high32 = _mm_setr_epi32(-1, 0, 0, 0);
    sum = _mm_xor_si128(_mm_clmulepi64_si128(sum, factors, 0x00),
                        _mm_slli_si128(_mm_srli_si128(sum, 8), 4));
    sum = _mm_xor_si128(_mm_clmulepi64_si128(sum, factors, 0x10), sum);
    sum = _mm_srli_si128(sum, 8);
    __m128i quotient = _mm_clmulepi64_si128(_mm_and_si128(sum, high32), division, 0x00);
    quotient = _mm_clmulepi64_si128(_mm_and_si128(quotient, high32), division, 0x10);
    sum = _mm_xor_si128(sum, quotient);
    return static_cast<std::uint32_t>(_mm_cvtsi128_si32(_mm_srli_si128(sum, 4)));
}

}  // namespace

bool hasInstructions() {
    return __builtin_cpu_supports("pclmul") != 0;
}

[[gnu::target("pclmul")]] std::uint32_t byInstructions(std::uint32_t sum, const std::uint8_t* data,
                                                       std::size_t length) {
    const std::uint8_t* const end = data + length;
    if (length >= block) {
        __m128i first = _mm_xor_si128(load(data), _mm_cvtsi32_si128(static_cast<int>(sum)));
        data += block;
        if (length >= block * blocksAtOnce) {
            __m128i second = load(data);
            __m128i third = load(data + block);
            __m128i fourth = load(data + 2 * block);
            data += 3 * block;
            const __m128i far = moveBy<block * blocksAtOnce>();
            for (; end - data >= static_cast<std::ptrdiff_t>(block * blocksAtOnce);
                 data += block * blocksAtOnce) {
                first = moveOn(first, far, load(data));
                second = moveOn(second, far, load(data + block));
                third = moveOn(third, far, load(data + 2 * block));
                fourth = moveOn(fourth, far, load(data + 3 * block));
            }
            first = moveOn(first, moveBy<block>(), second);
            first = moveOn(first, moveBy<block>(), third);
            first = moveOn(first, moveBy<block>(), fourth);
        }
        for (; end - data >= static_cast<std::ptrdiff_t>(block); data += block) {
            first = moveOn(first, moveBy<block>(), load(data));
        }
        sum = remainder(first);
    }
    return byBytes(standardTable.data(), sum, data, static_cast<std::size_t>(end - data));
}

#elif defined(__aarch64__)

// Instructions that take eight bytes, or one. Each waits for the one before it, hence three
// stretches side by side where that outweighs joining them.
#ifdef __clang__
#define CALCUT_CRC_INSTRUCTIONS gnu::target("crc")
#define CALCUT_CRC_8_BYTES __builtin_arm_crc32d
#define CALCUT_CRC_BYTE __builtin_arm_crc32b
#else
#define CALCUT_CRC_INSTRUCTIONS gnu::target("+crc")
#define CALCUT_CRC_8_BYTES __crc32d
#define CALCUT_CRC_BYTE __crc32b
#endif

namespace {

constexpr std::size_t stretches = 3;
constexpr std::size_t bytesAtOnce = 64;  // of a stretch
constexpr std::size_t longInput = 8192;

inline std::uint64_t load(const std::uint8_t* data) {
    std::uint64_t bytes;
    std::memcpy(&bytes, data, sizeof bytes);
    return bytes;
}

// Three sums over as many stretches of bytes.
struct Stretches {
    const std::uint8_t* data[stretches];
    std::uint32_t sums[stretches];
};

// The sixteen bytes from offset of each stretch.
[[CALCUT_CRC_INSTRUCTIONS, gnu::always_inline]] inline void addPairs(Stretches& all,
                                                                     std::size_t offset) {
    std::uint64_t a = load(all.data[0] + offset);
    std::uint64_t b = load(all.data[0] + offset + 8);
    std::uint64_t c = load(all.data[1] + offset);
    std::uint64_t d = load(all.data[1] + offset + 8);
    std::uint64_t e = load(all.data[2] + offset);
    std::uint64_t f = load(all.data[2] + offset + 8);
    // All are there before the first is used: small processors do not load out of order, and the
    // compiler joins loads that stand together.
    asm volatile("" : "+r"(a), "+r"(b), "+r"(c), "+r"(d), "+r"(e), "+r"(f) : : "memory");
    all.sums[0] = CALCUT_CRC_8_BYTES(all.sums[0], a);
    all.sums[1] = CALCUT_CRC_8_BYTES(all.sums[1], c);
    all.sums[2] = CALCUT_CRC_8_BYTES(all.sums[2], e);
    all.sums[0] = CALCUT_CRC_8_BYTES(all.sums[0], b);
    all.sums[1] = CALCUT_CRC_8_BYTES(all.sums[1], d);
    all.sums[2] = CALCUT_CRC_8_BYTES(all.sums[2], f);
}

// The length of a stretch is a multiple of bytesAtOnce.
[[CALCUT_CRC_INSTRUCTIONS]] std::uint32_t inStretches(std::uint32_t sum, const std::uint8_t* data,
                                                      std::size_t stretch) {
    Stretches all = {{data, data + stretch, data + 2 * stretch}, {sum, 0, 0}};
    while (all.data[0] != data + stretch) {
        addPairs(all, 0);
        addPairs(all, 16);
        addPairs(all, 32);
        addPairs(all, 48);
        all.data[0] += bytesAtOnce;
        all.data[1] += bytesAtOnce;
        all.data[2] += bytesAtOnce;
    }
    const std::uint32_t shift = shiftByBytes(stretch);
    return multiply(shift, multiply(shift, all.sums[0]) ^ all.sums[1]) ^ all.sums[2];
}

}  // namespace

bool hasInstructions() {
    return (getauxval(AT_HWCAP) & HWCAP_CRC32) != 0;
}

[[CALCUT_CRC_INSTRUCTIONS]] std::uint32_t byInstructions(std::uint32_t sum,
                                                         const std::uint8_t* data,
                                                         std::size_t length) {
    if (length >= longInput) {
        const std::size_t stretch = length / (stretches * bytesAtOnce) * bytesAtOnce;
        sum = inStretches(sum, data, stretch);
        data += stretch * stretches;
        length -= stretch * stretches;
    }
    for (; length >= sizeof(std::uint64_t); length -= sizeof(std::uint64_t)) {
        sum = CALCUT_CRC_8_BYTES(sum, load(data));
        data += sizeof(std::uint64_t);
    }
    for (; length != 0; --length) {
        sum = CALCUT_CRC_BYTE(sum, *data++);
    }
    return sum;
}

#else

bool hasInstructions() {
    return false;
}

std::uint32_t byInstructions(std::uint32_t sum, const std::uint8_t* data, std::size_t length) {
    return sideBySide(sum, data, length);
}

#endif

}  // namespace checksum
