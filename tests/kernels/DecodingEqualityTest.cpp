// The kernels that decode and sum up against their plain forms, bit for bit.
#include <gtest/gtest.h>

#include <cstring>
#include <tuple>

#include "Bits.h"
#include "calibration/packed/Compressed.h"
#include "calibration/packed/DecodingKernels.h"
#include "cutter/CRC32.h"
#include "cutter/CRC32Kernels.h"
#include "fixtures.h"
#include "plain/plain.h"

using namespace fixtures;
namespace plain = calcut::plain;

namespace kernels {

namespace {

Bytes bigEndianBytes(const Words& words) {
    Bytes bytes;
    for (const std::uint32_t word : words) {
        for (const unsigned shift : {24U, 16U, 8U, 0U}) {
            bytes.push_back(static_cast<std::uint8_t>(word >> shift));
        }
    }
    return bytes;
}

template <class Element>
std::uint8_t* bytesOf(std::vector<Element>& elements) {
    return reinterpret_cast<std::uint8_t*>(elements.data());
}

const std::uint8_t* bytesOf(const Words& words) {
    return reinterpret_cast<const std::uint8_t*>(words.data());
}

// Copied, so that a word read behind the end is seen by the address sanitizer.
Words firstOf(const Words& words, std::size_t count) {
    return {words.data(), words.data() + count};
}

// --------------------------------------------------------------------------------- unpacking --

// The low bytes of the same values, a byte for each; as many as there are.
std::pair<std::uint32_t, Bytes> lowBytes(const Words& words, std::uint64_t count, unsigned bits) {
    const Bytes packed = bigEndianBytes(words);
    Bytes low(count + 4, static_cast<std::uint8_t>(untouchedWord));
    const std::uint32_t status =
        vantric::decodePackedLowBytes(packed.data(), words.size(), count, bits, low.data());
    return {status, low};
}

TEST(DecodingEquality, UnpackingOfEveryWidthAndCountWithTooFewJustEnoughAndMoreWords) {
    const Words words = Random().many<std::uint32_t>(4200);
    std::vector<std::uint64_t> counts(71);
    std::iota(counts.begin(), counts.end(), 0);
    // Around the sizes of the groups in which values are unpacked, and odd ones beyond.
    counts.insert(counts.end(), {95, 96, 97, 127, 128, 129, 255, 257, 1023, 1024, 1025, 2047, 2048,
                                 2049, 3000, 4099});
    for (std::uint8_t bits = 1; bits <= 31; ++bits) {
        for (const std::uint64_t n : counts) {
            const std::uint64_t needed = (n * bits + 31) / 32;
            for (const std::uint64_t wordCount :
                 {needed, needed + 1, needed - std::min<std::uint64_t>(needed, 1), needed / 2}) {
                const Words exact = firstOf(words, wordCount);
                const auto* in = exact.data();
                Words fast(n + 4, untouchedWord), expected = fast;
                Words fastScratch = fast, expectedScratch = fast;
                Floats fastFloats(n + 4, untouched), expectedFloats = fastFloats;
                SCOPED_TRACE(testing::Message() << int{bits} << " bits, " << n << " values");
                const auto status = plain::unpackUint(in, wordCount, n, bits, expected.data());
                const Bytes low(expected.begin(), expected.end());
                ASSERT_EQ(lowBytes(exact, n, bits), std::pair(status, low));
                ASSERT_EQ(vantric_unpackRXUint(in, wordCount, n, bits, fast.data()), status);
                ASSERT_EQ(vantric_unpackRXFloat(in, wordCount, n, bits, fastScratch.data(),
                                                fastFloats.data(), 0.37F, -3.1F),
                          plain::unpackFloat(in, wordCount, n, bits, expectedScratch.data(),
                                             expectedFloats.data(), 0.37F, -3.1F));
                ASSERT_EQ(std::tie(fast, fastScratch), std::tie(expected, expectedScratch));
                ASSERT_EQ(bitsOf(fastFloats.data(), n + 4), bitsOf(expectedFloats.data(), n + 4));
            }
        }
    }
}

// Those that this processor does not choose as well.
std::vector<const vantric::DecodingKernels*> everyVariant() {
    return {&vantric::portableKernels, &vantric::decodingKernels()};
}

// Groups in either order of bytes, with no more words behind them than may be read.
TEST(DecodingEquality, GroupsOfEveryWidthAndOrderInEveryVariant) {
    const Words source = Random().many<std::uint32_t>(5 * 31 + vantric::wordsReadBehind);
    for (unsigned bits = 1; bits <= 31; ++bits) {
        for (std::size_t groups = 0; groups <= 5; ++groups) {
            const std::size_t count = groups * vantric::groupSize;
            const Words words = firstOf(source, groups * bits + vantric::wordsReadBehind);
            const Bytes swapped = bigEndianBytes(words);
            Words expected(count), unused(count);
            Floats expectedFloats(count);
            plain::unpackFloat(words.data(), words.size(), count, bits, expected.data(),
                               expectedFloats.data(), 0.37F, -3.1F);
            for (const auto* kernels : everyVariant()) {
                SCOPED_TRACE(testing::Message() << bits << " bits, " << groups << " groups");
                for (const bool bigEndian : {false, true}) {
                    Words values(count);
                    kernels->unpackUints(bigEndian ? swapped.data() : bytesOf(words), groups, bits,
                                         bigEndian, bytesOf(values));
                    ASSERT_EQ(values, expected);
                }
                Floats direct(count), inTwoSteps(count);
                kernels->unpackFloats(swapped.data(), groups, bits, 0.37F, -3.1F, bytesOf(direct));
                kernels->toFixedPoint(expected.data(), count, 0.37F, -3.1F, bytesOf(inTwoSteps));
                ASSERT_EQ(bitsOf(direct.data(), count), bitsOf(expectedFloats.data(), count));
                ASSERT_EQ(bitsOf(inTwoSteps.data(), count), bitsOf(expectedFloats.data(), count));
            }
        }
    }
}

TEST(DecodingEquality, BitsFloatsAndWordsOfEveryCountInEveryVariant) {
    const Words source = Random().many<std::uint32_t>(300);
    for (std::size_t count = 0; count <= source.size(); ++count) {
        const Words words = firstOf(source, count);
        const Bytes swapped = bigEndianBytes(words);
        const Bytes maskWords = prefix(swapped, (count + 31) / 32 * 4);
        Words unpacked(count);
        plain::unpackUint(words.data(), count, count, 1, unpacked.data());
        for (const auto* kernels : everyVariant()) {
            Bytes bits(count);
            kernels->spreadBits(maskWords.data(), count, bits.data());
            ASSERT_EQ(bits, Bytes(unpacked.begin(), unpacked.end()));
            Words inOrder(count);
            kernels->swapWords(swapped.data(), count, bytesOf(inOrder));
            ASSERT_EQ(inOrder, words);
            Bytes inPlace = swapped;
            kernels->swapWords(inPlace.data(), count, inPlace.data());
            ASSERT_EQ(inPlace, Bytes(bytesOf(inOrder), bytesOf(inOrder) + inPlace.size()));
        }
    }
}

// Blocks at any alignment of the payload and the destination.
TEST(DecodingEquality, BlocksOfEveryKindWidthAndAlignment) {
    const Bytes source = Random().many<std::uint8_t>(20000);
    for (std::uint32_t i = 0; i < 7 * 31; ++i) {
        const std::uint32_t kind = i % 7;
        const auto bits = static_cast<std::uint8_t>(1 + i / 7);
        for (const std::uint32_t count : {0U, 1U, 7U, 33U, 255U, 256U, 257U, 1025U, 2100U}) {
            SCOPED_TRACE(testing::Message() << "kind " << kind << ", " << int{bits} << " bits, "
                                            << count << " values");
            const std::size_t shift = (count + bits) % 4;
            const RXBlockHeader block = {0, kind, count, bits, 0.01F, 5.5F};
            const Bytes exact = prefix(source, shift + vantric_getRXPackedBlockSize(&block));
            VantricStream stream = {exact.data(), shift, exact.size()};
            VantricStream plainStream = stream;
            Bytes scratch(8 * std::size_t{count} + 16);
            Bytes fast(shift + std::size_t{count} * 4 + 8, 0xDE);
            Bytes expected(fast.size() - shift, 0xDE);
            ASSERT_EQ(vantric_decodeRXBlock(&stream, &block, scratch.data(), scratch.size(),
                                            fast.data() + shift, std::uint64_t{count} * 4),
                      plain::decodeBlock(plainStream, block, scratch.data(), scratch.size(),
                                         expected.data(), std::uint64_t{count} * 4));
            ASSERT_EQ(stream.position, plainStream.position);
            ASSERT_EQ(std::memcmp(fast.data() + shift, expected.data(), expected.size()), 0);
        }
    }
}

// ------------------------------------------------------------------------------------ floats --

// What the library makes of words as a float block.
Floats decodeFloatBlock(const Words& words) {
    const Bytes bytes = bigEndianBytes(words);
    const RXBlockHeader block = {0, RX_KIND_FLOAT, static_cast<std::uint32_t>(words.size()), 0, 0,
                                 0};
    Floats values(words.size());
    VantricStream stream = vantric_createStreamFromData(bytes.data(), bytes.size());
    EXPECT_EQ(vantric_decodeRXBlock(&stream, &block, nullptr, 0, bytesOf(values), bytes.size()),
              ok);
    return values;
}

// The first word for which one of the library's ways differs from the plain form, or -1.
std::int64_t firstWrongWord(const Words& words) {
    std::vector<Floats> all = {decodeFloatBlock(words)};
    for (const auto* kernels : everyVariant()) {
        // In the place of the words.
        const Bytes bytes = bigEndianBytes(words);
        Floats& values = all.emplace_back(words.size());
        std::memcpy(values.data(), bytes.data(), bytes.size());
        kernels->decodeFloats(bytesOf(values), words.size(), bytesOf(values));
    }
    for (std::size_t i = 0; i < words.size(); ++i) {
        const auto word = static_cast<std::int32_t>(words[i]);
        const std::uint32_t expected = bitsOf(plain::decodeFloat(word));
        bool wrong = bitsOf(vantric_decodeRXFloat(word)) != expected;
        for (const Floats& values : all) {
            wrong = wrong || bitsOf(values[i]) != expected;
        }
        if (wrong) {
            return words[i];
        }
    }
    return -1;
}

Words floatWords() {
    Words mantissas = {0,        1,        2,        3,        0x3FFFFF, 0x400000,
                       0x400001, 0x555555, 0x7FFFFD, 0x7FFFFE, 0x7FFFFF};
    Random random;
    std::generate_n(std::back_inserter(mantissas), 20, [&] { return random.word() & 0x7FFFFFU; });
    Words words;
    for (std::uint32_t exponent = 0; exponent < 256; ++exponent) {
        for (const std::uint32_t mantissa : mantissas) {
            const std::uint32_t magnitude = exponent << 23 | mantissa;
            words.insert(words.end(), {magnitude, 0U - magnitude});
        }
    }
    words.insert(words.end(), {0x80000000U, 0x80000001U});
    return words;
}

TEST(DecodingEquality, FloatsOfEveryExponentAndUnusualOnesAtEachPlace) {
    const Words words = floatWords();
    EXPECT_EQ(firstWrongWord(words), -1);
    // Each alone, so that no neighbour decides by which rule it is decoded.
    for (const std::uint32_t word : words) {
        ASSERT_EQ(firstWrongWord({word}), -1);
    }
    for (const std::uint32_t word : {0x00000001U, 0x00FFFFFFU, 0x80000000U, 0xFF800000U}) {
        for (std::size_t at = 0; at < 600; ++at) {
            Words mixed(600, 0x40123456);
            mixed[at] = word;
            ASSERT_EQ(firstWrongWord(mixed), -1) << at;
        }
    }
}

// ---------------------------------------------------------------------------------- checksum --

std::vector<std::size_t> checksumLengths() {
    std::vector<std::size_t> lengths(1101);
    std::iota(lengths.begin(), lengths.end(), 0);
    lengths.insert(lengths.end(), {4095, 8191, 8192, 8215, 65535, 65536, 65537, 100003, 299990});
    return lengths;
}

TEST(DecodingEquality, ChecksumOfEveryLengthAndStartInEveryWay) {
    Bytes data = Random().many<std::uint8_t>(300000);
    for (const std::size_t length : checksumLengths()) {
        for (std::uint8_t* start = data.data(); start < data.data() + 9; ++start) {
            const std::uint32_t sum = plain::crc32(start, length);
            ASSERT_EQ(calc_crc32(start, length), sum) << length;
            ASSERT_EQ(~checksum::sideBySide(~0U, start, length), sum) << length;
            if (checksum::hasInstructions()) {
                ASSERT_EQ(~checksum::byInstructions(~0U, start, length), sum) << length;
            }
        }
    }
}

// The table of a host is used as it is, also where it is not linear.
TEST(DecodingEquality, ChecksumByAChangedTable) {
    Bytes data = Random().many<std::uint8_t>(300000);
    Words standard(crc32table, crc32table + 256);
    Words castagnoli;
    for (std::uint32_t i = 0; i < 256; ++i) {
        std::uint32_t rest = i;
        for (int bit = 0; bit < 8; ++bit) {
            rest = (rest >> 1) ^ ((rest & 1U) != 0 ? 0x82F63B78U : 0U);
        }
        castagnoli.push_back(rest);
    }
    std::vector<Words> tables = {castagnoli, Random().many<std::uint32_t>(256)};
    for (const std::size_t changed : {0U, 127U, 255U}) {
        tables.push_back(standard);
        tables.back()[changed] ^= 1U;
    }
    for (const Words& table : tables) {
        std::copy(table.begin(), table.end(), crc32table);
        for (const std::size_t length : checksumLengths()) {
            EXPECT_EQ(calc_crc32(data.data(), length),
                      plain::crc32(data.data(), length, table.data()))
                << length;
        }
    }
    std::copy(standard.begin(), standard.end(), crc32table);
}

TEST(DecodingEquality, ResultsAreThoseOfEveryOtherMachine) {
    Hash hash;
    const Floats floats = decodeFloatBlock(floatWords());
    hash.add(bitsOf(floats.data(), floats.size()));
    const Words words = Random().many<std::uint32_t>(1000);
    for (std::uint8_t bits = 1; bits <= 31; ++bits) {
        Words unpacked(1000);
        Floats converted(1000);
        ASSERT_EQ(vantric_unpackRXFloat(words.data(), words.size(), unpacked.size(), bits,
                                        unpacked.data(), converted.data(), 0.013F, -7.7F),
                  ok);
        hash.add(unpacked);
        hash.add(bitsOf(converted.data(), converted.size()));
    }
    EXPECT_EQ(hash.value(), 0x1AD7F1E1ACCD892AULL);
}

}  // namespace

}  // namespace kernels
