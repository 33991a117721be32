#include "calibration/packed/Compressed.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstring>
#include <limits>

#include "calibration/packed/DecodingKernels.h"

namespace vantric {

namespace {

constexpr unsigned wordBits = 32;
constexpr std::size_t wordSize = sizeof(std::uint32_t);

// Values that take two steps: few enough to stay in the nearest cache.
constexpr std::size_t chunk = 32 * groupSize;

// Values that are whole within the words, at most valueCount.
std::uint64_t wholeValues(std::uint64_t wordCount, std::uint64_t valueCount, unsigned bits) {
    const bool countable = wordCount <= std::numeric_limits<std::uint64_t>::max() / wordBits;
    return countable ? std::min(valueCount, wordCount * wordBits / bits) : valueCount;
}

// Unpacks count values, all of which lie within the words, by unpackGroups(words, groups, dest).
// What is no whole group, or has too few words behind it, is unpacked from a copy with room behind.
template <class UnpackGroups>
void unpack(const std::uint8_t* words, std::uint64_t wordCount, std::size_t count, unsigned bits,
            std::uint8_t* dest, const UnpackGroups& unpackGroups) {
    const std::uint64_t readable = wordCount - std::min<std::uint64_t>(wordCount, wordsReadBehind);
    const auto groups =
        static_cast<std::size_t>(std::min<std::uint64_t>(readable / bits, count / groupSize));
    unpackGroups(words, groups, dest);
    const std::size_t rest = count - groups * groupSize;
    if (rest != 0) {
        constexpr std::size_t mostGroups = 1 + wordsReadBehind;
        std::uint32_t copy[mostGroups * maxPackedBits + wordsReadBehind] = {};
        std::uint32_t values[mostGroups * groupSize];
        std::memcpy(copy, words + groups * bits * wordSize,
                    (rest * bits + wordBits - 1) / wordBits * wordSize);
        unpackGroups(reinterpret_cast<const std::uint8_t*>(copy),
                     (rest + groupSize - 1) / groupSize, reinterpret_cast<std::uint8_t*>(values));
        std::memcpy(dest + groups * groupSize * wordSize, values, rest * wordSize);
    }
}

auto uintsOf(unsigned bits, bool bigEndian) {
    return [=, unpackUints = decodingKernels().unpackUints](
               const std::uint8_t* words, std::size_t groups, std::uint8_t* dest) {
        unpackUints(words, groups, bits, bigEndian, dest);
    };
}

std::uint32_t statusOf(std::uint64_t whole, std::uint64_t valueCount) {
    return whole == valueCount ? VANTRIC_OK : VANTRIC_ERR_END_OF_DATA;
}

// Calls use(first, count, its words, how many) for the chunks of valueCount values.
template <class Use>
void forEachChunk(const std::uint8_t* words, std::uint64_t wordCount, std::uint64_t valueCount,
                  unsigned bits, const Use& use) {
    for (std::uint64_t first = 0; first < valueCount; first += chunk) {
        const std::uint64_t word = first / groupSize * bits;
        use(first, static_cast<std::size_t>(std::min<std::uint64_t>(chunk, valueCount - first)),
            words + word * wordSize, wordCount - word);
    }
}

}  // namespace

bool holdsValues(std::uint64_t wordCount, std::uint64_t valueCount, unsigned bits) {
    return wholeValues(wordCount, valueCount, bits) == valueCount;
}

std::uint32_t decodePackedUints(const std::uint8_t* words, std::uint64_t wordCount,
                                std::uint64_t valueCount, unsigned bits, std::uint8_t* dest) {
    const std::uint64_t whole = wholeValues(wordCount, valueCount, bits);
    unpack(words, wordCount, whole, bits, dest, uintsOf(bits, true));
    return statusOf(whole, valueCount);
}

std::uint32_t decodePackedLowBytes(const std::uint8_t* words, std::uint64_t wordCount,
                                   std::uint64_t valueCount, unsigned bits, std::uint8_t* dest) {
    const std::uint64_t whole = wholeValues(wordCount, valueCount, bits);
    if (bits == 1) {
        decodingKernels().spreadBits(words, whole, dest);
        return statusOf(whole, valueCount);
    }
    forEachChunk(words, wordCount, whole, bits,
                 [&](std::uint64_t first, std::size_t count, const std::uint8_t* chunkWords,
                     std::uint64_t chunkWordCount) {
                     std::uint32_t values[chunk];
                     unpack(chunkWords, chunkWordCount, count, bits,
                            reinterpret_cast<std::uint8_t*>(values), uintsOf(bits, true));
                     std::transform(values, values + count, dest + first, [](std::uint32_t value) {
                         return static_cast<std::uint8_t>(value);
                     });
                 });
    return statusOf(whole, valueCount);
}

std::uint32_t decodePackedFloats(const std::uint8_t* words, std::uint64_t wordCount,
                                 std::uint64_t valueCount, unsigned bits, float scale, float offset,
                                 std::uint8_t* dest) {
    const std::uint64_t whole = wholeValues(wordCount, valueCount, bits);
    if (whole == valueCount) {
        unpack(words, wordCount, whole, bits, dest,
               [=, unpackFloats = decodingKernels().unpackFloats](
                   const std::uint8_t* from, std::size_t groups, std::uint8_t* to) {
                   unpackFloats(from, groups, bits, scale, offset, to);
               });
    }
    return statusOf(whole, valueCount);
}

}  // namespace vantric

using namespace vantric;

uint64_t vantric_getRXPackedSize(uint64_t valueCount, uint8_t bits) {
    const float words = std::ceil(static_cast<float>(valueCount * bits) * 0.03125F);
    return static_cast<std::uint64_t>(words) * sizeof(std::uint32_t);
}

uint32_t vantric_unpackRXUint(const uint32_t* words, uint64_t wordCount, uint64_t valueCount,
                              uint8_t bits, uint32_t* out) {
    if (!validPackedBits(bits)) {
        return VANTRIC_ERR_INVALID_DATA;
    }
    const std::uint64_t whole = wholeValues(wordCount, valueCount, bits);
    unpack(reinterpret_cast<const std::uint8_t*>(words), wordCount, whole, bits,
           reinterpret_cast<std::uint8_t*>(out), uintsOf(bits, false));
    return statusOf(whole, valueCount);
}

uint32_t vantric_unpackRXFloat(const uint32_t* words, uint64_t wordCount, uint64_t valueCount,
                               uint8_t bits, uint32_t* scratch, float* out, float scale,
                               float offset) {
    if (!validPackedBits(bits)) {
        return VANTRIC_ERR_INVALID_DATA;
    }
    const std::uint64_t whole = wholeValues(wordCount, valueCount, bits);
    const bool complete = whole == valueCount;
    forEachChunk(reinterpret_cast<const std::uint8_t*>(words), wordCount, whole, bits,
                 [&](std::uint64_t first, std::size_t count, const std::uint8_t* chunkWords,
                     std::uint64_t chunkWordCount) {
                     unpack(chunkWords, chunkWordCount, count, bits,
                            reinterpret_cast<std::uint8_t*>(scratch + first), uintsOf(bits, false));
                     if (complete) {
                         decodingKernels().toFixedPoint(
                             scratch + first, count, scale, offset,
                             reinterpret_cast<std::uint8_t*>(out + first));
                     }
                 });
    return statusOf(whole, valueCount);
}
