#include <gtest/gtest.h>

#include <cmath>
#include <limits>

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
        for (const std::int64_t signedCount : {0, 1, 2, 3, 4, 5, -1}) {
            const auto count = static_cast<std::uint64_t>(signedCount);
            EXPECT_EQ(vantric_canRead(&stream, count),
                      count <= 4 && position + count <= 4 ? ok : endOfData);
        }
        EXPECT_EQ(stream.position, position);
    }
}

TEST(Scalars, AreBigEndianAtAnyAlignment) {
    const std::uint8_t bytes[] = {0x11, 0xFE, 0xDC, 0xBA, 0x98, 0x22};
    std::uint16_t u16 = 0;
    std::uint32_t u32 = 0;
    std::int32_t i32 = 0;
    EXPECT_EQ(vantric_fromRXUint16(bytes + 1, &u16), ok);
    EXPECT_EQ(vantric_fromRXUint32(bytes + 1, &u32), ok);
    EXPECT_EQ(vantric_fromRXInt32(bytes + 1, &i32), ok);
    EXPECT_EQ(u16, 0xFEDC);
    EXPECT_EQ(u32, 0xFEDCBA98U);
    EXPECT_EQ(i32, -19088744);
    EXPECT_EQ(vantric_decodeRXInt32(-7), -7);
}

TEST(Scalars, DecodeTheFormatsFloat) {
    using Limits = std::numeric_limits<float>;
    const std::pair<std::uint32_t, float> cases[] = {
        {0x00000000, 0.0F},
        {0x3F800000, 0.5F},
        {0x40000000, 1.0F},
        {0xC0000000, -1.0F},
        {0x40400000, 1.5F},
        {0x40490FDB + 0x00800000, 3.14159274F},
        {0x80000000, -Limits::infinity()},
        {0x7FFFFFFF, Limits::max()},
        {0x80000001, Limits::lowest()},
        {0x7F800000, 0x1p127F},   // exponent field 255: two steps, no overflow
        {0x01000000, 0x1p-126F},  // smallest normal result
        {0x00800000, 0x1p-127F},  // below the normal floats
        {0x00000001, 0x1p-128F},  // field 0: rounded twice below
        {0x00000003, 0x1p-128F + 0x1p-149F},
        {0xFF800000, -0x1p-127F}};
    for (const auto& [word, expected] : cases) {
        const Bytes big = bytes(word >> 24, word >> 16, word >> 8, word);
        float value = -7.0F;
        EXPECT_EQ(vantric_fromRXFloat(big.data(), &value), ok);
        EXPECT_EQ(value, expected) << std::hex << word;
        EXPECT_FALSE(std::signbit(value) && value == 0.0F);
        EXPECT_EQ(vantric_decodeRXFloat(static_cast<std::int32_t>(word)), expected);
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

TEST(Packing, OtherWidthsWriteNothing) {
    const std::uint32_t words[] = {0x44332211, 0x88776655};
    for (const int bits : {0, 32, 255}) {
        const auto width = static_cast<std::uint8_t>(bits);
        std::uint32_t out = 7;
        float value = 7.0F;
        EXPECT_EQ(vantric_unpackRXUint(words, 2, 1, width, &out), invalidData);
        EXPECT_EQ(vantric_unpackRXFloat(words, 2, 1, width, &out, &value, 1, 0), invalidData);
        EXPECT_EQ(out, 7U);
        EXPECT_EQ(value, 7.0F);
    }
}
