#pragma once

#include <cstddef>
#include <cstdint>

namespace vantric {

// Values are unpacked in groups of 32, which are as many words as a value has bits.
constexpr std::size_t groupSize = 32;

/// Words behind a group that unpacking it may read, too, without using them.
constexpr std::size_t wordsReadBehind = 3;

/// What turns payloads into values, by the instructions of one kind of processor. Memory may have
/// any alignment; source and destination do not overlap, except where it is said.
struct DecodingKernels {
    /// Values of 1 to 31 bits from words in the order of the machine, with the alignment of words
    /// as then the values have, or from big-endian ones.
    void (*unpackUints)(const std::uint8_t* words, std::size_t groups, unsigned bits,
                        bool bigEndian, std::uint8_t* values);
    /// The same, as offset + scale * value; always big-endian.
    void (*unpackFloats)(const std::uint8_t* words, std::size_t groups, unsigned bits, float scale,
                         float offset, std::uint8_t* floats);
    /// offset + scale * value of integers below 2^31.
    void (*toFixedPoint)(const std::uint32_t* values, std::size_t count, float scale, float offset,
                         std::uint8_t* floats);
    /// The bits of big-endian words as bytes of 0 and 1; reads no words behind.
    void (*spreadBits)(const std::uint8_t* words, std::size_t count, std::uint8_t* bytes);
    /// Floats of the packed format. They may take the place of their source.
    void (*decodeFloats)(const std::uint8_t* source, std::size_t count, std::uint8_t* floats);
    /// Big-endian words into the order of the machine. They may take the place of their source.
    void (*swapWords)(const std::uint8_t* source, std::size_t count, std::uint8_t* words);
};

/// For every processor (on 64-bit Arm, which has all it takes for the others, in part), for x86-64
/// with AVX2, and for 64-bit Arm.
extern const DecodingKernels portableKernels;
#ifdef __x86_64__
extern const DecodingKernels avx2Kernels;
#endif
#ifdef __ARM_NEON
extern const DecodingKernels neonKernels;
#endif

/// Those for this processor.
const DecodingKernels& decodingKernels();

}  // namespace vantric
