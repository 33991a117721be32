#include "calibration/packed/Completeness.h"
#include "calibration/packed/CopyHooks.h"

#include <gtest/gtest.h>

#include <array>
#include <cstring>
#include <limits>
#include <numeric>
#include <tuple>

#include "calibration/calibration.h"
#include "fixtures.h"

using namespace fixtures;
using namespace vantric;

namespace {

using Table = TableOwner;

// A record of six pixels and its table.
struct Tessaly : testing::Test {
    Record record{allocateCalibration(6)};
    VantricCalibration& r = *record;
    Table table{vantric_createTessalyTable(&r, 6)};
};

// Marks a block as met, with the kind that it should have.
void meet(RXBlockTable& table, std::uint32_t id) {
    RXTableEntry* entry = vantric_findRXTableEntry(static_cast<std::uint8_t>(id), &table);
    ASSERT_NE(entry, nullptr);
    const RXBlockHeader block = {id, entry->expectation->kindA, 0, 0, 0, 0};
    EXPECT_EQ(validateBlock(&block, entry->expectation), ok);
}

}  // namespace

TEST(Table, HoldsWhatItsCapacityAllows) {
    EXPECT_EQ(vantric_createTable(0, 20), nullptr);
    vantric_freeRXTable(nullptr);
    const Table bare(vantric_createTable(2, 0));
    EXPECT_EQ(bare->count, 0U);
    EXPECT_EQ(bare->context, nullptr);
    EXPECT_EQ(vantric_findRXTableEntry(1, bare.get()), nullptr);
    const RXBlockExpectation expectation = {};
    std::uint8_t count = 0;
    const auto add = [&](std::uint8_t id, std::int32_t expected, const RXBlockExpectation* e) {
        return vantric_addRXTableEntry(id, &count, 1, &count, expected, copyMask, e, bare.get());
    };
    EXPECT_EQ(add(1, 0, &expectation), invalidArgument);
    EXPECT_EQ(add(1, 3, nullptr), ok);
    EXPECT_EQ(add(1, 4, nullptr), ok);
    EXPECT_EQ(add(2, 5, nullptr), tooSmall);
    const RXTableEntry* entry = vantric_findRXTableEntry(1, bare.get());
    ASSERT_EQ(entry, bare->entries);  // the first of two with that id
    EXPECT_EQ(entry->expectedCount, 3);
    EXPECT_EQ(entry->expectation, nullptr);
}

TEST_F(Tessaly, DescribesTheRecord) {
    EXPECT_EQ(std::tuple(table->count, table->capacity, table->context, table->firstCustomBlockId,
                         table->expectationSize),
              std::tuple(66, 66, &r, 128, 20));
    EXPECT_EQ(vantric_addRXTableEntry(9, nullptr, 0, nullptr, 0, nullptr, nullptr, table.get()),
              tooSmall);
    for (std::uint32_t id = 0; id < 256; ++id) {
        EXPECT_EQ(vantric_findRXTableEntry(static_cast<std::uint8_t>(id), table.get()) != nullptr,
                  id < 10 || (id >= 16 && id < 72))
            << id;
        const RXBlockHeader block = {id, 0, 0, 0, 0, 0};
        EXPECT_EQ(table->isFrequencyBlock(&block), id >= 16 && id < 72 && (id - 16) % 7 == 0);
    }

    // id, destination, its size, count field, expected count, copy, required, the two kinds
    using Row = std::tuple<int, void*, std::uint64_t, std::uint8_t*, std::int32_t, RXCopyFunction,
                           std::uint32_t, std::uint32_t, std::uint32_t>;
    std::vector<Row> rows = {
        {0, &r.auxFlag, 1, nullptr, -1, nullptr, 1, 0, 0},
        {1, r.lensParameters, 36, &r.lensParameterCount, 9, nullptr, 1, 4, 4},
        {2, r.pixelMask, 6, nullptr, 0, copyMask, 1, 5, 5},
        {3, r.pixelValues, 24, nullptr, 0, nullptr, 1, 4, 6},
        {4, r.text0, 64, nullptr, -1, convertAndCopyDate, 0, 2, 2},
        {6, r.text2, 64, nullptr, -1, copyString, 0, 0, 0},
        {5, r.text1, 64, nullptr, -1, copyString, 0, 0, 0},
        {7, r.idBytes, 32, &r.idBytesSize, -1, nullptr, 0, 0, 0},
        {8, &r.idCode0, 4, nullptr, 2, nullptr, 0, 1, 1},
        {9, &r.straylightScale, 140, &r.straylightPointCount, 32, copyStraylight, 0, 4, 4},
    };
    for (int id = 16; id < 72; id += 7) {
        VantricFrequencyRecord& f = r.frequencies[(id - 16) / 7];
        const std::uint32_t need = id == 16 ? 1 : 0;
        VantricWigglingTable *a = &f.wigglingA, *b = &f.wigglingB;
        rows.push_back({id, &f.frequencyId, 4, nullptr, -1, nullptr, need, 2, 2});
        rows.push_back({id + 1, f.pixelTable, 24, nullptr, 0, nullptr, need, 4, 6});
        rows.push_back({id + 2, f.valuesA, 16, &f.countA, 4, nullptr, need, 4, 4});
        rows.push_back({id + 3, f.valuesB, 16, &f.countB, 4, nullptr, need, 4, 4});
        rows.push_back({id + 4, &f.scalar, 4, nullptr, -1, nullptr, 0, 4, 4});
        rows.push_back({id + 5, a, 40, &a->capacity, 4, copyWiggling, need, 4, 4});
        rows.push_back({id + 6, b, 40, &b->capacity, 4, copyWiggling, need, 4, 4});
    }
    for (std::size_t i = 0; i < rows.size(); ++i) {
        const RXTableEntry& entry = table->entries[i];
        const RXBlockExpectation& e = *entry.expectation;
        EXPECT_EQ(rows[i], Row(entry.id, entry.destination, entry.destinationSize, entry.countField,
                               entry.expectedCount, entry.copy, e.required,
                               std::min(e.kindA, e.kindB), std::max(e.kindA, e.kindB)));
        EXPECT_EQ(e.seen, 0U);
        EXPECT_EQ(e.status, ok);
    }
}

// Counts that a failed read left behind must not widen the places of the next one.
TEST_F(Tessaly, CountsNeverReachBeyondTheBuffers) {
    r.lensParameterCount = r.idBytesSize = r.frequencies[0].countA = 200;
    table.reset(vantric_createTessalyTable(&r, 6));
    for (const auto& [id, size] : {std::pair(1, 36U), {7, 32U}, {18, 16U}}) {
        EXPECT_EQ(
            vantric_findRXTableEntry(static_cast<std::uint8_t>(id), table.get())->destinationSize,
            size);
    }
}

TEST(Hooks, ValidateBlockRemembersAWrongKind) {
    RXBlockExpectation expectation = {0, 4, 6, 0, 0};
    for (const auto& [kind, status] :
         {std::pair(4U, ok), {6U, ok}, {5U, invalidData}, {4U, invalidData}}) {
        const RXBlockHeader block = {3, kind, 0, 0, 0, 0};
        EXPECT_EQ(validateBlock(&block, &expectation), status);
    }
    EXPECT_EQ(expectation.seen, 4U);
}

TEST(Hooks, CopyMaskFillsTheWholeTarget) {
    const std::uint32_t words[] = {0x101, 0x2FF, 0x300, 4};
    Bytes mask = {9, 9, 9, 9, 9};
    EXPECT_EQ(copyMask(words, 16, mask.data(), 3, nullptr), tooSmall);
    EXPECT_EQ(mask[0], 9);
    EXPECT_EQ(copyMask(words, 8, mask.data(), 4, nullptr), ok);  // beyond the block's two words
    EXPECT_EQ(mask, (Bytes{0x01, 0xFF, 0x00, 4, 9}));
}

TEST(Hooks, DateIsAppendedInParentheses) {
    const std::uint32_t seven = 7;
    const std::uint32_t largest = 0xFFFFFFFFU;
    char text[64] = "0123456789";
    EXPECT_EQ(convertAndCopyDate(&seven, 8, text, 64, nullptr), invalidData);
    EXPECT_EQ(convertAndCopyDate(&seven, 4, text, 25, nullptr), tooSmall);
    EXPECT_EQ(convertAndCopyDate(&seven, 4, text, 64, nullptr), ok);
    EXPECT_STREQ(text, "0123456789 (7)");
    // 14 characters are kept free for the longest number, whatever the number is.
    for (std::size_t length = 0; length < 64; ++length) {
        std::string start(length, 'x');
        std::memset(text, 'y', sizeof text);
        std::memcpy(text, start.c_str(), length + 1);
        const bool fits = length + 14 < 64;
        EXPECT_EQ(convertAndCopyDate(&largest, 4, text, 64, nullptr), fits ? ok : tooSmall);
        EXPECT_EQ(std::string(text), fits ? start + " (4294967295)" : start);
    }
    std::memset(text, 'y', sizeof text);  // a target without an end
    EXPECT_EQ(convertAndCopyDate(&seven, 4, text, 64, nullptr), tooSmall);
    EXPECT_EQ(text[63], '\0');
}

TEST(Hooks, CopyStringTerminates) {
    for (std::size_t length = 0; length < 66; ++length) {
        const std::string source(length, 's');
        std::string text(65, 't');
        const bool fits = length < 64;
        EXPECT_EQ(copyString(source.data(), length, text.data(), 64, nullptr),
                  fits ? ok : tooSmall);
        EXPECT_TRUE(!fits || text.c_str() == source);
        EXPECT_EQ(text[fits ? length + 1 : 0], 't');
    }
}

TEST_F(Tessaly, CopyStraylightFillsTheRunOfTheRecord) {
    std::array<float, 33> source;
    std::iota(source.begin(), source.end(), 1.0F);
    std::uint8_t count = 0;
    const auto copy = [&](std::uint64_t size, std::uint64_t target) {
        return copyStraylight(source.data(), size, &r.straylightScale, target, &count);
    };
    for (const auto& [size, target] : {std::pair(124, 140), {132, 140}, {128, 139}}) {
        EXPECT_EQ(copy(static_cast<unsigned>(size), static_cast<unsigned>(target)), invalidData);
    }
    EXPECT_NE(r.straylightScale, r.straylightScale);
    EXPECT_EQ(count, 0);
    EXPECT_EQ(copy(131, 140), ok);
    const auto* run = &r.straylightScale;
    float expected[32];  // the fourteenth point of both arrays stays unset
    std::fill(expected, expected + 32, std::numeric_limits<float>::quiet_NaN());
    std::iota(expected, expected + 14, 1.0F);
    std::iota(expected + 15, expected + 28, 15.0F);
    std::iota(expected + 29, expected + 32, 28.0F);
    EXPECT_EQ(std::memcmp(run, expected, sizeof expected), 0);
    EXPECT_EQ(std::tuple(r.psfWidth, r.psfHeight, r.straylightPointCount, count, r.psf),
              std::tuple(31, 32, 13, 13, nullptr));

    const float infinity = std::numeric_limits<float>::infinity();
    using Conversion = std::pair<float, std::uint32_t>;
    for (const auto& [value, converted] : {Conversion{0.99F, 0},
                                           {-0.5F, 0},
                                           {-7, 0},
                                           {223.999F, 223},
                                           {4294967040.0F, 4294967040U},
                                           {0x1p32F, 0xFFFFFFFFU},
                                           {infinity, 0xFFFFFFFFU},
                                           {-infinity, 0},
                                           {expected[14], 0}}) {
        source[30] = source[31] = value;
        EXPECT_EQ(copy(128, 140), ok);
        EXPECT_EQ(r.psfWidth, converted);
        EXPECT_EQ(r.psfHeight, converted);
    }
}

TEST(Hooks, CopyWigglingSplitsTheBlock) {
    std::vector<float> source(1 + 3 * 257);
    std::iota(source.begin(), source.end(), 1.0F);
    for (std::uint64_t size = 0; size <= 4 * 22; ++size) {
        const Record record(allocateCalibration(6));
        VantricWigglingTable& table = record->frequencies[0].wigglingA;
        std::uint8_t count = 77;
        const std::uint64_t words = size / 4;
        const bool shaped = words >= 4 && (words - 1) % 3 == 0;
        const std::uint64_t n = shaped ? (words - 1) / 3 : 0;
        const std::uint32_t expected = !shaped ? invalidData : n > 5 ? tooSmall : ok;
        EXPECT_EQ(copyWiggling(source.data(), size, &table, 0, &count), expected) << size;
        EXPECT_EQ(count, expected == ok ? n : 77);
        EXPECT_EQ(table.header, expected == ok ? 0x3F800000U : 0);  // the bits of 1.0
        for (std::uint64_t i = 0; expected == ok && i < n; ++i) {
            EXPECT_EQ(std::tuple(table.third[i], table.first[i], table.second[i]),
                      std::tuple(source[1 + i], source[1 + n + i], 2 + 2 * n + i));
        }
    }
    // 256 + 1 entries: the number is kept as 8 bits, so one entry is what counts.
    const Record record(allocateCalibration(6));
    std::uint8_t count = 0;
    EXPECT_EQ(copyWiggling(source.data(), source.size() * 4, &record->frequencies[0].wigglingB, 40,
                           &count),
              ok);
    EXPECT_EQ(count, 1);
}

TEST(Validation, NamesTheBlockThatIsMissing) {
    using Met = std::vector<std::uint32_t>;
    const Met complete = {0, 1, 2, 3, 16, 17, 18, 19, 21, 22};
    const auto with = [&](Met more) {
        more.insert(more.begin(), complete.begin(), complete.end());
        return more;
    };
    std::vector<std::tuple<const char*, Met, std::uint32_t, std::uint32_t>> cases = {
        {"complete", complete, ok, 255},
        {"with the optional kind", with({20}), ok, 255},
        {"nothing", {}, fieldEmpty, 0},
        {"texts are optional", with({4, 5, 6, 7}), ok, 255},
        {"codes met but unset", with({8}), valueUnset, 8},
        {"straylight met but unset", with({9}), valueUnset, 9},
        {"codes come before the missing frequency", {0, 1, 2, 3, 8}, valueUnset, 8},
        {"second frequency complete", with({23, 24, 25, 26, 28, 29}), ok, 255},
        {"second frequency without its kind 0", with({24}), fieldEmpty, 24},
        {"only the optional kind of the second", with({27}), fieldEmpty, 27},
        {"eighth frequency, last missing wins", with({65, 66}), fieldEmpty, 71},
        {"gap between frequencies", with({65, 66, 67, 68, 70, 71}), ok, 255},
        {"two lack blocks", with({23, 24, 26, 28, 29, 30, 31, 32, 33, 35, 36}), fieldEmpty, 25},
    };
    for (std::size_t i = 0; i < complete.size(); ++i) {
        Met met = complete;
        met.erase(met.begin() + static_cast<std::ptrdiff_t>(i));
        cases.emplace_back("one required block missing", met, fieldEmpty, complete[i]);
    }
    for (const auto& [name, met, status, missing] : cases) {
        SCOPED_TRACE(name);
        const Record record(allocateCalibration(6));
        const Table table(vantric_createTessalyTable(record.get(), 6));
        for (const std::uint32_t id : met) {
            meet(*table, id);
        }
        RXReadResult result = {1, 255};
        EXPECT_EQ(validateWholeCalibration(table.get(), &result), status);
        EXPECT_EQ(result.failedBlockId, missing);
        EXPECT_EQ(result.status, status == ok ? 1 : status);
        EXPECT_EQ(validateWholeCalibration(table.get(), nullptr), status);
    }
}

TEST(Validation, PassesOnAnEntrysOwnStatus) {
    for (const bool isMet : {false, true}) {
        const Record record(allocateCalibration(6));
        const Table table(vantric_createTessalyTable(record.get(), 6));
        RXBlockExpectation& lens = *vantric_findRXTableEntry(1, table.get())->expectation;
        meet(*table, 0);
        lens.status = invalidData;
        lens.seen = isMet ? 1 : 0;
        RXReadResult result = {0, 255};
        EXPECT_EQ(validateWholeCalibration(table.get(), &result), invalidData);
        EXPECT_EQ(result.failedBlockId, 1U);
    }
}
