#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <random>

#include "calcut/vantric_rx.h"
#include "fixtures.h"

using namespace fixtures;

TEST(Stream, ChecksBoundsOnceAndForAll) {
    const std::uint8_t data[4] = {};
    VantricStream stream = vantric_createStreamFromData(data, 4);
    EXPECT_EQ(stream.data, data);
    EXPECT_EQ(stream.position, 0U);
    for (std::uint64_t position = 0; position <= 6; ++position) {
        stream.position = position;
        for (std::uint64_t count = 0; count <= 6; ++count) {
            EXPECT_EQ(vantric_canRead(&stream, count),
                      position + count <= 4 ? VANTRIC_OK : VANTRIC_ERR_END_OF_DATA);
        }
        EXPECT_EQ(vantric_canRead(&stream, std::numeric_limits<std::uint64_t>::max()),
                  VANTRIC_ERR_END_OF_DATA);
        EXPECT_EQ(stream.position, position);
    }
}

TEST(Scalars, AreBigEndianAtAnyAlignment) {
    const std::uint8_t bytes[] = {0x11, 0xFE, 0xDC, 0xBA, 0x98, 0x22};
    std::uint16_t u16 = 0;
    std::uint32_t u32 = 0;
    std::int32_t i32 = 0;
    EXPECT_EQ(vantric_fromRXUint16(bytes + 1, &u16), VANTRIC_OK);
    EXPECT_EQ(vantric_fromRXUint32(bytes + 1, &u32), VANTRIC_OK);
    EXPECT_EQ(vantric_fromRXInt32(bytes + 1, &i32), VANTRIC_OK);
    EXPECT_EQ(u16, 0xFEDC);
    EXPECT_EQ(u32, 0xFEDCBA98U);
    EXPECT_EQ(i32, -19088744);
    EXPECT_EQ(vantric_decodeRXInt32(-7), -7);
}

TEST(Scalars, DecodeTheFormatsFloat) {
    struct Case {
        std::uint32_t word;
        float value;
    };
    const float infinity = std::numeric_limits<float>::infinity();
    for (const Case& item : {
             Case{0x00000000, 0.0F},
             Case{0x3F800000, 0.5F},
             Case{0x40000000, 1.0F},
             Case{0xC0000000, -1.0F},
             Case{0x40400000, 1.5F},
             Case{0x40490FDB + 0x00800000, 3.14159274F},
             Case{0x80000000, -infinity},
             Case{0x7FFFFFFF, std::numeric_limits<float>::max()},
             Case{0x80000001, std::numeric_limits<float>::lowest()},
             Case{0x7F800000, 0x1p127F},   // exponent field 255: two steps, no overflow
             Case{0x01000000, 0x1p-126F},  // smallest normal result
             Case{0x00800000, 0x1p-127F},  // below the normal floats
             Case{0x00000001, 0x1p-128F},  // field 0: rounded twice below
             Case{0x00000003, 0x1p-128F + 0x1p-149F},
             Case{0xFF800000, -0x1p-127F},
         }) {
        const std::uint8_t bytes[] = {
            static_cast<std::uint8_t>(item.word >> 24), static_cast<std::uint8_t>(item.word >> 16),
            static_cast<std::uint8_t>(item.word >> 8), static_cast<std::uint8_t>(item.word)};
        float value = -7.0F;
        EXPECT_EQ(vantric_fromRXFloat(bytes, &value), VANTRIC_OK);
        EXPECT_EQ(value, item.value) << std::hex << item.word;
        EXPECT_FALSE(std::signbit(value) && value == 0.0F);
        EXPECT_EQ(vantric_decodeRXFloat(static_cast<std::int32_t>(item.word)), item.value);
    }
}

TEST(Scalars, FixedPointMultipliesFirst) {
    EXPECT_EQ(vantric_decodeFromRXFixedPoint(6, 0.5F, -1.0F), 2.0F);
    EXPECT_EQ(vantric_decodeFromRXFixedPoint(4, 0.25F, 10.0F), 11.0F);
    EXPECT_EQ(vantric_decodeFromRXFixedPoint(0xFFFFFFFFU, 1.0F, 0.0F), 4294967296.0F);
    // Not fused: the product is rounded before the sum.
    EXPECT_EQ(vantric_decodeFromRXFixedPoint(3, 1.0F / 3.0F, -1.0F), 0.0F);
}

TEST(Packing, SizesRoundInSinglePrecision) {
    struct Case {
        std::uint64_t count;
        std::uint8_t bits;
        std::uint64_t size;
    };
    for (const Case& item : {Case{0, 7, 0}, Case{1, 1, 4}, Case{10, 5, 8}, Case{32, 31, 124},
                             Case{33, 31, 128}, Case{100, 12, 152}, Case{38528, 12, 57792},
                             Case{16777217, 1, 2097152},  // one bit too few: 2^24 + 1 rounds down
                             Case{16777216, 1, 2097152}, Case{0xFFFFFFFFU, 31, 16642998272},
                             Case{4, 0, 0}, Case{4, 255, 128}}) {
        EXPECT_EQ(vantric_getRXPackedSize(item.count, item.bits), item.size);
    }
}

// The reference takes one bit at a time.
TEST(Packing, EveryWidthAgreesWithABitByBitReference) {
    std::mt19937 random(7);
    for (unsigned bits = 1; bits <= 31; ++bits) {
        for (const std::size_t count : {0U, 1U, 2U, 31U, 32U, 33U, 64U, 100U}) {
            const std::size_t wordCount = (count * bits + 31) / 32;
            std::vector<std::uint32_t> words(wordCount);
            for (std::uint32_t& word : words) {
                word = static_cast<std::uint32_t>(random());
            }
            std::vector<std::uint32_t> expected(count);
            for (std::size_t bit = 0; bit < count * bits; ++bit) {
                const std::uint32_t one = (words[bit / 32] >> (bit % 32)) & 1U;
                expected[bit / bits] |= one << (bit % bits);
            }
            const auto width = static_cast<std::uint8_t>(bits);
            // Buffers of exactly the computed size, so that a sanitizer sees every step too far.
            std::vector<std::uint32_t> out(count, 0xABABABABU);
            EXPECT_EQ(vantric_unpackRXUint(words.data(), wordCount, count, width, out.data()),
                      VANTRIC_OK);
            EXPECT_EQ(out, expected) << bits << " bits, " << count << " values";
            std::vector<std::uint32_t> scratch(count);
            std::vector<float> floats(count);
            EXPECT_EQ(vantric_unpackRXFloat(words.data(), wordCount, count, width, scratch.data(),
                                            floats.data(), 0.25F, -3.0F),
                      VANTRIC_OK);
            EXPECT_EQ(scratch, expected);
            for (std::size_t i = 0; i < count; ++i) {
                EXPECT_EQ(floats[i], -3.0F + 0.25F * static_cast<float>(expected[i]));
            }
            EXPECT_EQ(calcut::writer::packBits(expected, bits).size(), wordCount);
            std::vector<std::uint32_t> again(count);
            const auto repacked = calcut::writer::packBits(expected, bits);
            vantric_unpackRXUint(repacked.data(), repacked.size(), count, width, again.data());
            EXPECT_EQ(again, expected);
        }
    }
}

TEST(Packing, TooFewWordsGiveTheValuesThatAreThere) {
    const std::vector<std::uint32_t> words = {0x44332211, 0x88776655};
    for (unsigned bits = 1; bits <= 31; ++bits) {
        const auto width = static_cast<std::uint8_t>(bits);
        const std::uint64_t whole = 64 / bits;
        std::vector<std::uint32_t> out(whole + 1, 7);
        EXPECT_EQ(vantric_unpackRXUint(words.data(), 2, whole + 1, width, out.data()),
                  VANTRIC_ERR_END_OF_DATA);
        EXPECT_EQ(out.back(), 7U);
        EXPECT_EQ(out.front(), words[0] & ((1U << bits) - 1));
        std::vector<std::uint32_t> scratch(whole + 1, 7);
        std::vector<float> floats(whole + 1, -1.0F);
        EXPECT_EQ(vantric_unpackRXFloat(words.data(), 2, whole + 1, width, scratch.data(),
                                        floats.data(), 1.0F, 0.0F),
                  VANTRIC_ERR_END_OF_DATA);
        EXPECT_EQ(scratch, out);
        EXPECT_EQ(floats, std::vector<float>(whole + 1, -1.0F));
        // More words than needed: nothing beyond the values asked for.
        std::vector<std::uint32_t> one(2, 9);
        EXPECT_EQ(vantric_unpackRXUint(words.data(), 2, 1, width, one.data()), VANTRIC_OK);
        EXPECT_EQ(one[1], 9U);
    }
    for (const std::uint8_t bits : {std::uint8_t{0}, std::uint8_t{32}, std::uint8_t{255}}) {
        std::uint32_t out = 7;
        float value = 7.0F;
        EXPECT_EQ(vantric_unpackRXUint(words.data(), 2, 1, bits, &out), VANTRIC_ERR_INVALID_DATA);
        EXPECT_EQ(vantric_unpackRXFloat(words.data(), 2, 1, bits, &out, &value, 1.0F, 0.0F),
                  VANTRIC_ERR_INVALID_DATA);
        EXPECT_EQ(out, 7U);
        EXPECT_EQ(value, 7.0F);
    }
}
