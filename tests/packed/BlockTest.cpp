#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <tuple>

#include "calcut/vantric_rx.h"
#include "calibration/packed/Block.h"
#include "fixtures.h"

using namespace fixtures;

TEST(FileHeader, ReadsElevenBytes) {
    const Bytes good = bytes("QOVRXF", 1, 0x00, 0xE0, 0x00, 0xAC);
    RXHeader header = {};
    for (std::size_t size = 0; size <= good.size(); ++size) {
        VantricStream stream = vantric_createStreamFromData(good.data(), size);
        EXPECT_EQ(vantric_readRXHeader(&stream, &header), size == 11 ? ok : endOfData) << size;
        EXPECT_EQ(stream.position, size == 11 ? 11U : (size < 6 ? 0U : 6U));
    }
    EXPECT_EQ(std::tuple(header.version, header.columns, header.rows), std::tuple(1, 224, 172));
    for (std::size_t bit = 0; bit < 48; ++bit) {
        const Bytes other = flipped(good, bit);
        VantricStream stream = vantric_createStreamFromData(other.data(), other.size());
        EXPECT_EQ(vantric_readRXHeader(&stream, &header), notSupported);
        EXPECT_EQ(stream.position, 0U);
    }
}

TEST(BlockHeader, ReadsEveryForm) {
    constexpr RXHeader header320x240 = {1, 320, 240};
    constexpr std::uint64_t pixels = 76800;
    struct Case {
        const char* name;
        Bytes bytes;
        std::uint32_t status;
        std::uint64_t position;
        std::uint32_t kind = 99, count = 99;
        std::uint8_t bits = 0;
        float scale = 0, offset = 0;
    };
    const std::vector<Case> cases = {
        {"nothing", {}, endOfData, 0},
        {"end marker alone", {255}, ok, 1},
        {"two bytes behind the id are too few", {1, 0, 5}, endOfData, 1},
        {"raw, and one byte of payload", {1, 0, 5, 9}, ok, 3, 0, 5},
        {"kind 7", {1, 7, 5, 9}, invalidData, 2, 7},
        {"kind 255 at the end of the data", {1, 255, 5}, endOfData, 1},
        {"count 248", {1, 4, 248, 0}, ok, 3, 4, 248},
        {"per pixel", {1, 1, 0, 0}, ok, 3, 1, pixels},
        {"two per pixel", {1, 2, 250, 0}, ok, 3, 2, 2 * pixels},
        {"seven per pixel", {1, 3, 255, 0}, ok, 3, 3, 7 * pixels},
        {"long count", {1, 0, 249, 0, 1, 0, 0}, ok, 7, 0, 65536},
        {"long count cut short", {1, 0, 249, 0, 1, 0}, endOfData, 3, 0},
        {"packed", {1, 5, 3, 12}, ok, 4, 5, 3, 12},
        {"packed, long count", {1, 5, 249, 0, 0, 1, 0, 12}, ok, 8, 5, 256, 12},
        {"missing bits byte counts as 0", {1, 5, 249, 0, 0, 1, 0}, ok, 8, 5, 256, 0},
        {"packed float, bits byte missing", {1, 6, 249, 0, 0, 1, 0}, endOfData, 8, 6, 256, 0},
        {"float", {1, 6, 0, 9, 63, 128, 0, 0, 192, 0, 0, 0}, ok, 12, 6, pixels, 9, 0.5F, -1},
        {"long", {1, 6, 249, 0, 0, 0, 2, 9, 63, 128, 0, 0, 64, 0, 0, 0}, ok, 16, 6, 2, 9, 0.5F, 1},
        {"offset cut", {1, 6, 0, 9, 63, 128, 0, 0, 192, 0, 0}, endOfData, 4, 6, pixels, 9},
    };
    for (const Case& item : cases) {
        SCOPED_TRACE(item.name);
        VantricStream stream = vantric_createStreamFromData(item.bytes.data(), item.bytes.size());
        RXBlockHeader b = {99, 99, 99, 0, 0, 0};
        EXPECT_EQ(vantric_readRXBlockHeader(&stream, &header320x240, &b), item.status);
        EXPECT_EQ(
            std::tie(stream.position, b.kind, b.count, b.bits, b.scale, b.offset),
            std::tie(item.position, item.kind, item.count, item.bits, item.scale, item.offset));
    }
}

TEST(Block, SizesFollowTheKind) {
    for (std::uint32_t kind = 0; kind < 7; ++kind) {
        const std::uint64_t unpacked[] = {100, 200, 400, 400, 400, 400, 400};
        const RXBlockHeader block = {1, kind, 100, 12, 0, 0};
        EXPECT_EQ(vantric_getRXPackedBlockSize(&block), kind < 5 ? unpacked[kind] : 152);
        EXPECT_EQ(vantric_getRXUnpackedBlockSize(&block), unpacked[kind]);
        const RXBlockHeader huge = {1, kind, 0xFFFFFFFFU, 31, 0, 0};
        const std::uint64_t most = unpacked[kind] / 100 * 0xFFFFFFFFULL;  // more than 32 bits
        EXPECT_EQ(vantric_getRXPackedBlockSize(&huge), kind < 5 ? most : 16642998272);
        EXPECT_EQ(vantric_getRXUnpackedBlockSize(&huge), most);
    }
}

TEST(Block, DecodesEachKindOrSaysWhyNot) {
    struct Case {
        const char* name;
        RXBlockHeader block;
        Bytes payload;
        std::uint32_t status;
        std::uint64_t position, scratch;
        Bytes decoded = {};
        std::size_t destMissing = 0;
    };
    const Bytes payload8 = {0, 4, 0, 2, 1, 1, 1, 1};
    const std::vector<Case> cases = {
        {"raw", {1, 0, 3, 0, 0, 0}, {7, 8, 9, 10}, ok, 3, 0, {7, 8, 9}},
        {"uint16", {1, 1, 2, 0, 0, 0}, {0, 1, 255, 254}, ok, 4, 0, {1, 0, 254, 255}},
        {"uint32", {1, 2, 1, 0, 0, 0}, {18, 52, 86, 120}, ok, 4, 0, {120, 86, 52, 18}},
        {"int32", {1, 3, 1, 0, 0, 0}, {255, 255, 255, 254}, ok, 4, 0, {254, 255, 255, 255}},
        {"float", {1, 4, 1, 0, 0, 0}, {192, 0, 0, 0}, ok, 4, 0, {0, 0, 128, 191}},
        {"packed", {1, 5, 2, 16, 0, 0}, {0, 4, 0, 2}, ok, 4, 12, {2, 0, 0, 0, 4, 0, 0, 0}},
        {"real", {1, 6, 2, 16, 0.5F, 1}, {0, 4, 0, 2}, ok, 4, 12, {0, 0, 0, 64, 0, 0, 64, 64}},
        {"scratch one byte short", {1, 5, 4, 8, 0, 0}, {1, 2, 3, 4}, tooSmall, 0, 19},
        {"packed without scratch", {1, 6, 2, 16, 1, 0}, {0, 4, 0, 2}, tooSmall, 0, 0},
        {"destination one byte short", {1, 4, 1, 0, 0, 0}, {64, 0, 0, 0}, tooSmall, 0, 99, {}, 1},
        {"payload one byte short", {1, 4, 1, 0, 0, 0}, {64, 0, 0}, endOfData, 0, 99},
        {"32 bits", {1, 5, 2, 32, 0, 0}, payload8, invalidData, 8, 99},
        {"0 bits consume nothing", {1, 6, 2, 0, 0, 0}, payload8, invalidData, 0, 99},
        {"unknown kind", {1, 7, 2, 0, 0, 0}, payload8, alreadySet, 8, 99},
        {"no elements", {1, 4, 0, 0, 0, 0}, {}, ok, 0, 0},
    };
    for (const auto& [name, block, payload, status, position, room, decoded, missing] : cases) {
        SCOPED_TRACE(name);
        Bytes dest(vantric_getRXUnpackedBlockSize(&block) - missing);
        Bytes scratch(room);
        VantricStream stream = vantric_createStreamFromData(payload.data(), payload.size());
        EXPECT_EQ(
            vantric_decodeRXBlock(&stream, &block, scratch.data(), room, dest.data(), dest.size()),
            status);
        EXPECT_EQ(stream.position, position);
        EXPECT_TRUE(status != ok || dest == decoded);
    }
}

// Above 2^24 bits the packed size is rounded; one value is then missing in its words.
TEST(Block, RoundedSizeLeavesTooFewWords) {
    for (const RXKind kind : {RX_KIND_PACKED_UINT, RX_KIND_PACKED_FLOAT}) {
        const RXBlockHeader block = {1, kind, 16777217, 1, 1, 1};
        Bytes payload(2097152, 0xFF);
        Bytes dest(std::size_t{16777217} * 4);
        VantricStream stream = vantric_createStreamFromData(payload.data(), payload.size());
        std::uint8_t unused = 0;
        EXPECT_EQ(
            vantric_decodeRXBlock(&stream, &block, &unused, UINT64_MAX, dest.data(), dest.size()),
            endOfData);
        EXPECT_EQ(stream.position, payload.size());
        EXPECT_EQ(dest[dest.size() - 8], kind == RX_KIND_PACKED_UINT ? 1 : 0);
        EXPECT_EQ(dest[dest.size() - 4], 0);
        stream.position = 0;
        const vantric::Refusal why =
            vantric::takePayload(stream, block, UINT64_MAX, UINT64_MAX).refusal;
        EXPECT_EQ(std::tuple(why.cause, why.expected, why.found),
                  std::tuple(vantric::Cause::tooFewWords, 16777217, 0));
    }
}

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
    using Case = std::tuple<std::uint64_t, std::uint8_t, std::uint64_t>;
    for (const auto& [count, bits, packed] :
         {Case{0, 7, 0}, Case{1, 1, 4}, Case{10, 5, 8}, Case{32, 31, 124}, Case{33, 31, 128},
          Case{100, 12, 152}, Case{38528, 12, 57792},
          Case{16777217, 1, 2097152},  // one bit too few: 2^24 + 1 rounds down
          Case{16777216, 1, 2097152}, Case{0xFFFFFFFFU, 31, 16642998272}, Case{4, 0, 0},
          Case{4, 255, 128}}) {
        EXPECT_EQ(vantric_getRXPackedSize(count, bits), packed);
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
