#pragma once

// Vector registers: the same few operations by the instructions of each processor. Compiled once
// for every instruction set, each time in the namespace that CALCUT_INSTRUCTION_SET names, with
// internal linkage only; otherwise the linker may keep the AVX2 copy for every processor.

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <utility>

#if defined(__AVX2__) || defined(__SSE2__)
#include <immintrin.h>
#elif defined(__ARM_NEON)
#include <arm_neon.h>
#else
#include <cmath>
#endif

#define CALCUT_INLINE [[gnu::always_inline]] static inline

namespace vantric::CALCUT_INSTRUCTION_SET {

#ifdef __AVX2__
constexpr std::size_t registerSize = 32;
#else
constexpr std::size_t registerSize = 16;
#endif
constexpr std::size_t lanes = registerSize / sizeof(float);

// Arithmetic on these works lane by lane in every compiler that knows the attribute.
using Floats = float __attribute__((vector_size(registerSize)));
using Words = std::uint32_t __attribute__((vector_size(registerSize)));
using SignedWords = std::int32_t __attribute__((vector_size(registerSize)));
using FourFloats = float __attribute__((vector_size(16)));

template <std::size_t I>
struct Index {
    constexpr operator std::size_t() const { return I; }  // NOLINT(google-explicit-constructor)
};

// Calls use(0), use(1), ... with constants: what such an index selects stays in registers, whether
// the compiler unrolls loops or not.
template <std::size_t Count, class Use>
CALCUT_INLINE void unrolled(const Use& use) {
    [&]<std::size_t... I>(std::index_sequence<I...>) __attribute__((always_inline)) {
        (use(Index<I>{}), ...);
    }
    (std::make_index_sequence<Count>{});
}

CALCUT_INLINE Floats broadcast(float value) {
    return value - Floats{};
}

// Four factors, which 64-bit Arm takes from the lanes of one register.
#ifdef __ARM_NEON
using Factors = FourFloats;
CALCUT_INLINE Factors factorsOf(float a, float b, float c, float d) {
    return FourFloats{a, b, c, d};
}
template <int I>
CALCUT_INLINE Floats times(Factors factors, Floats values) {
    return vmulq_laneq_f32(values, factors, I);
}
#else
struct Factors {
    Floats values[4];
};
CALCUT_INLINE Factors factorsOf(float a, float b, float c, float d) {
    return {{broadcast(a), broadcast(b), broadcast(c), broadcast(d)}};
}
template <int I>
CALCUT_INLINE Floats times(const Factors& factors, Floats values) {
    return factors.values[I] * values;
}
#endif

// The numbers first, first + 1, ... as floats; all are below 2^31.
CALCUT_INLINE Floats ascending(std::uint32_t first) {
    SignedWords numbers = {};
    unrolled<lanes>([&](auto i) {
        numbers[std::size_t{i}] = static_cast<std::int32_t>(first + static_cast<std::uint32_t>(i));
    });
    return __builtin_convertvector(numbers, Floats);
}

CALCUT_INLINE Floats squareRoot(Floats values) {
#if defined(__AVX2__)
    return _mm256_sqrt_ps(values);
#elif defined(__SSE2__)
    return _mm_sqrt_ps(values);
#elif defined(__ARM_NEON)
    return vsqrtq_f32(values);
#else
    unrolled<lanes>([&](auto i) { values[std::size_t{i}] = sqrtf(values[std::size_t{i}]); });
    return values;
#endif
}

CALCUT_INLINE bool anySet(Words words) {
#if defined(__AVX2__)
    return _mm256_testz_si256(reinterpret_cast<__m256i>(words), reinterpret_cast<__m256i>(words)) ==
           0;
#elif defined(__SSE2__)
    return _mm_movemask_epi8(reinterpret_cast<__m128i>(words == 0)) != 0xFFFF;
#elif defined(__ARM_NEON)
    return vmaxvq_u32(words) != 0;
#else
    return (words[0] | words[1] | words[2] | words[3]) != 0;
#endif
}

// Four triples, interleaved.
CALCUT_INLINE void storeFourTriples(FourFloats x, FourFloats y, FourFloats z, float* out) {
#if defined(__ARM_NEON)
    const float32x4x3_t triples = {{x, y, z}};
    vst3q_f32(out, triples);
#else
    const FourFloats xxyy = __builtin_shufflevector(x, y, 0, 2, 4, 6);
    const FourFloats yyzz = __builtin_shufflevector(y, z, 1, 3, 5, 7);
    const FourFloats zzxx = __builtin_shufflevector(z, x, 0, 2, 5, 7);
    const FourFloats stored[] = {__builtin_shufflevector(xxyy, zzxx, 0, 2, 4, 6),
                                 __builtin_shufflevector(yyzz, xxyy, 0, 2, 5, 7),
                                 __builtin_shufflevector(zzxx, yyzz, 1, 3, 5, 7)};
    std::memcpy(out, stored, sizeof stored);
#endif
}

CALCUT_INLINE void storeTriples(Floats x, Floats y, Floats z, float* out) {
#ifdef __AVX2__
    storeFourTriples(_mm256_castps256_ps128(x), _mm256_castps256_ps128(y),
                     _mm256_castps256_ps128(z), out);
    storeFourTriples(_mm256_extractf128_ps(x, 1), _mm256_extractf128_ps(y, 1),
                     _mm256_extractf128_ps(z, 1), out + 12);
#else
    storeFourTriples(x, y, z, out);
#endif
}

#if defined(__AVX2__) || defined(__ARM_NEON)

// What only these have: byte look-up, and a shift of its own for each lane.

using Bytes = std::uint8_t __attribute__((vector_size(registerSize)));
constexpr std::size_t windowSize = 16;  // a byte look-up reaches no further
constexpr std::size_t windows = registerSize / windowSize;

// At any alignment. Plain accesses, since GCC does not join copies into loads and stores of pairs.
using UnalignedWords [[gnu::aligned(1), gnu::may_alias]] = Words;

CALCUT_INLINE Words load(const void* from) {
    return *static_cast<const UnalignedWords*>(from);
}

CALCUT_INLINE void store(void* to, Words words) {
    *static_cast<UnalignedWords*>(to) = words;
}

// Sixteen bytes for each half of a register, or for all of one that has no halves.
CALCUT_INLINE Words loadWindows(const std::uint8_t* low,
                                [[maybe_unused]] const std::uint8_t* high) {
#ifdef __AVX2__
    return reinterpret_cast<Words>(_mm256_loadu2_m128i(reinterpret_cast<const __m128i*>(high),
                                                       reinterpret_cast<const __m128i*>(low)));
#else
    return load(low);
#endif
}

// By bytes: byte index[i] of the window in byte i; 0 where the index is 0xFF.
CALCUT_INLINE Words lookUp(Words window, Words index) {
#ifdef __AVX2__
    return reinterpret_cast<Words>(
        _mm256_shuffle_epi8(reinterpret_cast<__m256i>(window), reinterpret_cast<__m256i>(index)));
#else
    return reinterpret_cast<Words>(
        vqtbl1q_u8(reinterpret_cast<Bytes>(window), reinterpret_cast<Bytes>(index)));
#endif
}

// Shifts to the right, in the form that the processor takes.
CALCUT_INLINE SignedWords shiftsOf(Words amounts) {
#ifdef __AVX2__
    return reinterpret_cast<SignedWords>(amounts);
#else
    return -reinterpret_cast<SignedWords>(amounts);
#endif
}

CALCUT_INLINE Words shiftRight(Words values, SignedWords shifts) {
#ifdef __AVX2__
    return reinterpret_cast<Words>(
        _mm256_srlv_epi32(reinterpret_cast<__m256i>(values), reinterpret_cast<__m256i>(shifts)));
#else
    return vshlq_u32(values, shifts);
#endif
}

CALCUT_INLINE Words swapBytes(Words words) {
#ifdef __AVX2__
    constexpr Words reversed = {0x00010203, 0x04050607, 0x08090A0B, 0x0C0D0E0F,
                                0x00010203, 0x04050607, 0x08090A0B, 0x0C0D0E0F};
    return lookUp(words, reversed);
#else
    return reinterpret_cast<Words>(vrev32q_u8(reinterpret_cast<Bytes>(words)));
#endif
}

CALCUT_INLINE Words magnitude(Words words) {
#ifdef __AVX2__
    return reinterpret_cast<Words>(_mm256_abs_epi32(reinterpret_cast<__m256i>(words)));
#else
    return reinterpret_cast<Words>(vabsq_s32(reinterpret_cast<SignedWords>(words)));
#endif
}

CALCUT_INLINE Words minimum(Words a, Words b) {
#ifdef __AVX2__
    return reinterpret_cast<Words>(
        _mm256_min_epu32(reinterpret_cast<__m256i>(a), reinterpret_cast<__m256i>(b)));
#else
    return vminq_u32(a, b);
#endif
}

// a - b, or 0 where b is greater.
CALCUT_INLINE Words subtractSaturating(Words a, Words b) {
#ifdef __AVX2__
    return reinterpret_cast<Words>(
               _mm256_max_epu32(reinterpret_cast<__m256i>(a), reinterpret_cast<__m256i>(b))) -
           b;
#else
    return vqsubq_u32(a, b);
#endif
}

// Bits of a where the mask is set, else of b.
CALCUT_INLINE Words select(Words mask, Words a, Words b) {
#ifdef __AVX2__
    return (mask & a) | (b & ~mask);
#else
    return vbslq_u32(mask, a, b);
#endif
}

// All bits of a lane where the two share a bit.
CALCUT_INLINE Bytes sharesBits(Bytes a, Bytes b) {
#ifdef __AVX2__
    return reinterpret_cast<Bytes>((a & b) == b);  // b has one bit
#else
    return vtstq_u8(a, b);
#endif
}

#endif

}  // namespace vantric::CALCUT_INSTRUCTION_SET
