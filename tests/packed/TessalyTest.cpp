#include "calibration/packed/Tessaly.h"

#include <gtest/gtest.h>

#include <array>
#include <cstring>
#include <limits>
#include <numeric>

#include "calibration/calibration.h"
#include "fixtures.h"

using namespace fixtures;
using namespace vantric;

namespace {

constexpr std::uint64_t numPixels = 6;

struct ReleaseTable {
    void operator()(RXBlockTable* table) const { vantric_freeRXTable(table); }
};
using Table = std::unique_ptr<RXBlockTable, ReleaseTable>;

Record newRecord() {
    return Record(allocateCalibration(numPixels));
}

// Marks a block as met, with the kind that it should have.
void meet(RXBlockTable& table, std::uint32_t id) {
    RXTableEntry* entry = vantric_findRXTableEntry(static_cast<std::uint8_t>(id), &table);
    ASSERT_NE(entry, nullptr);
    const RXBlockHeader block = {id, entry->expectation->kindA, 0, 0, 0, 0};
    EXPECT_EQ(validateBlock(&block, entry->expectation), VANTRIC_OK);
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
    EXPECT_EQ(vantric_addRXTableEntry(1, nullptr, 0, nullptr, 0, nullptr, &expectation, bare.get()),
              VANTRIC_ERR_INVALID_ARGUMENT);
    std::uint8_t count = 0;
    EXPECT_EQ(vantric_addRXTableEntry(1, &count, 1, &count, 3, copyMask, nullptr, bare.get()),
              VANTRIC_OK);
    EXPECT_EQ(vantric_addRXTableEntry(1, nullptr, 9, nullptr, 0, nullptr, nullptr, bare.get()),
              VANTRIC_OK);
    EXPECT_EQ(vantric_addRXTableEntry(2, nullptr, 9, nullptr, 0, nullptr, nullptr, bare.get()),
              VANTRIC_ERR_BUFFER_TOO_SMALL);
    const RXTableEntry* entry = vantric_findRXTableEntry(1, bare.get());
    ASSERT_EQ(entry, bare->entries);  // the first of two with that id
    EXPECT_EQ(entry->destination, &count);
    EXPECT_EQ(entry->destinationSize, 1U);
    EXPECT_EQ(entry->countField, &count);
    EXPECT_EQ(entry->expectedCount, 3);
    EXPECT_EQ(entry->copy, copyMask);
    EXPECT_EQ(entry->expectation, nullptr);
}

TEST(Table, TessalyDescribesTheRecord) {
    const Record record = newRecord();
    VantricCalibration& r = *record;
    const Table table(vantric_createTessalyTable(&r, numPixels));
    ASSERT_EQ(table->count, 66U);
    EXPECT_EQ(table->capacity, 66U);
    EXPECT_EQ(table->context, &r);
    EXPECT_EQ(table->firstCustomBlockId, 128);
    EXPECT_EQ(table->expectationSize, 20U);
    EXPECT_EQ(vantric_addRXTableEntry(9, nullptr, 0, nullptr, 0, nullptr, nullptr, table.get()),
              VANTRIC_ERR_BUFFER_TOO_SMALL);
    for (int id = 0; id < 256; ++id) {
        EXPECT_EQ(vantric_findRXTableEntry(static_cast<std::uint8_t>(id), table.get()) != nullptr,
                  id < 10 || (id >= 16 && id < 72))
            << id;
        const RXBlockHeader block = {static_cast<std::uint32_t>(id), 0, 0, 0, 0, 0};
        EXPECT_EQ(table->isFrequencyBlock(&block), id >= 16 && id < 72 && (id - 16) % 7 == 0);
    }

    struct Row {
        int id;
        void* destination;
        std::uint64_t size;
        std::uint8_t* countField;
        std::int32_t expectedCount;
        RXCopyFunction copy;
        std::uint32_t required, kindA, kindB;
    };
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
    for (int k = 0; k < 8; ++k) {
        VantricFrequencyRecord& f = r.frequencies[k];
        const std::uint32_t need = k == 0 ? 1 : 0;
        const int id = 16 + 7 * k;
        rows.push_back({id, &f.frequencyId, 4, nullptr, -1, nullptr, need, 2, 2});
        rows.push_back({id + 1, f.pixelTable, 24, nullptr, 0, nullptr, need, 4, 6});
        rows.push_back({id + 2, f.valuesA, 16, &f.countA, 4, nullptr, need, 4, 4});
        rows.push_back({id + 3, f.valuesB, 16, &f.countB, 4, nullptr, need, 4, 4});
        rows.push_back({id + 4, &f.scalar, 4, nullptr, -1, nullptr, 0, 4, 4});
        rows.push_back(
            {id + 5, &f.wigglingA, 40, &f.wigglingA.capacity, 4, copyWiggling, need, 4, 4});
        rows.push_back(
            {id + 6, &f.wigglingB, 40, &f.wigglingB.capacity, 4, copyWiggling, need, 4, 4});
    }
    for (std::size_t i = 0; i < rows.size(); ++i) {
        const Row& row = rows[i];
        SCOPED_TRACE(row.id);
        const RXTableEntry& entry = table->entries[i];
        EXPECT_EQ(entry.id, row.id);
        EXPECT_EQ(entry.destination, row.destination);
        EXPECT_EQ(entry.destinationSize, row.size);
        EXPECT_EQ(entry.countField, row.countField);
        EXPECT_EQ(entry.expectedCount, row.expectedCount);
        EXPECT_EQ(entry.copy, row.copy);
        EXPECT_EQ(entry.expectation->required, row.required);
        EXPECT_TRUE(
            (entry.expectation->kindA == row.kindA && entry.expectation->kindB == row.kindB) ||
            (entry.expectation->kindA == row.kindB && entry.expectation->kindB == row.kindA));
        EXPECT_EQ(entry.expectation->seen, 0U);
        EXPECT_EQ(entry.expectation->status, VANTRIC_OK);
    }
}

// Counts that a failed read left behind must not widen the places of the next one.
TEST(Table, CountsNeverReachBeyondTheBuffers) {
    const Record record = newRecord();
    record->lensParameterCount = 200;
    record->idBytesSize = 200;
    record->frequencies[0].countA = 200;
    const Table table(vantric_createTessalyTable(record.get(), numPixels));
    EXPECT_EQ(vantric_findRXTableEntry(1, table.get())->destinationSize, 36U);
    EXPECT_EQ(vantric_findRXTableEntry(7, table.get())->destinationSize, 32U);
    EXPECT_EQ(vantric_findRXTableEntry(18, table.get())->destinationSize, 16U);
}

TEST(Hooks, ValidateBlockRemembersAWrongKind) {
    RXBlockExpectation expectation = {0, 4, 6, 0, 0};
    RXBlockHeader block = {3, 4, 0, 0, 0, 0};
    EXPECT_EQ(validateBlock(&block, &expectation), VANTRIC_OK);
    block.kind = 6;
    EXPECT_EQ(validateBlock(&block, &expectation), VANTRIC_OK);
    block.kind = 5;
    EXPECT_EQ(validateBlock(&block, &expectation), VANTRIC_ERR_INVALID_DATA);
    block.kind = 4;
    EXPECT_EQ(validateBlock(&block, &expectation), VANTRIC_ERR_INVALID_DATA);
    EXPECT_EQ(expectation.seen, 4U);
}

TEST(Hooks, CopyMaskFillsTheWholeTarget) {
    const std::uint32_t words[] = {0x101, 0x2FF, 0x300, 4};
    std::uint8_t mask[] = {9, 9, 9, 9, 9};
    EXPECT_EQ(copyMask(words, 16, mask, 3, nullptr), VANTRIC_ERR_BUFFER_TOO_SMALL);
    EXPECT_EQ(mask[0], 9);
    EXPECT_EQ(copyMask(words, 8, mask, 4, nullptr), VANTRIC_OK);  // beyond the block's two words
    EXPECT_EQ(Bytes(mask, mask + 5), (Bytes{0x01, 0xFF, 0x00, 4, 9}));
}

TEST(Hooks, DateIsAppendedInParentheses) {
    const std::uint32_t seven = 7;
    const std::uint32_t largest = 0xFFFFFFFFU;
    char text[64] = "0123456789";
    EXPECT_EQ(convertAndCopyDate(&seven, 8, text, 64, nullptr), VANTRIC_ERR_INVALID_DATA);
    EXPECT_EQ(convertAndCopyDate(&seven, 4, text, 25, nullptr), VANTRIC_ERR_BUFFER_TOO_SMALL);
    EXPECT_EQ(convertAndCopyDate(&seven, 4, text, 64, nullptr), VANTRIC_OK);
    EXPECT_STREQ(text, "0123456789 (7)");
    // 14 characters are kept free for the longest number, whatever the number is.
    for (std::size_t length = 0; length < 64; ++length) {
        std::string start(length, 'x');
        std::memset(text, 'y', sizeof text);
        std::memcpy(text, start.c_str(), length + 1);
        const bool fits = length + 14 < 64;
        EXPECT_EQ(convertAndCopyDate(&largest, 4, text, 64, nullptr),
                  fits ? VANTRIC_OK : VANTRIC_ERR_BUFFER_TOO_SMALL);
        EXPECT_EQ(std::string(text), fits ? start + " (4294967295)" : start);
    }
    std::memset(text, 'y', sizeof text);  // a target without an end
    EXPECT_EQ(convertAndCopyDate(&seven, 4, text, 64, nullptr), VANTRIC_ERR_BUFFER_TOO_SMALL);
    EXPECT_EQ(text[63], '\0');
}

TEST(Hooks, CopyStringTerminates) {
    for (std::size_t length = 0; length < 66; ++length) {
        const std::string source(length, 's');
        std::array<char, 65> text;
        text.fill('t');
        EXPECT_EQ(copyString(source.data(), length, text.data(), 64, nullptr),
                  length < 64 ? VANTRIC_OK : VANTRIC_ERR_BUFFER_TOO_SMALL);
        if (length < 64) {
            EXPECT_EQ(std::string(text.data()), source);
        }
        EXPECT_EQ(text[length < 64 ? length + 1 : 0], 't');
    }
}

TEST(Hooks, CopyStraylightFillsTheRunOfTheRecord) {
    std::array<float, 33> source;
    std::iota(source.begin(), source.end(), 1.0F);
    const Record record = newRecord();
    VantricCalibration& r = *record;
    std::uint8_t count = 0;
    const auto copy = [&](std::uint64_t size, std::uint64_t target) {
        return copyStraylight(source.data(), size, &r.straylightScale, target, &count);
    };
    EXPECT_EQ(copy(124, 140), VANTRIC_ERR_INVALID_DATA);
    EXPECT_EQ(copy(132, 140), VANTRIC_ERR_INVALID_DATA);
    EXPECT_EQ(copy(128, 139), VANTRIC_ERR_INVALID_DATA);
    EXPECT_NE(r.straylightScale, r.straylightScale);
    EXPECT_EQ(count, 0);
    EXPECT_EQ(copy(131, 140), VANTRIC_OK);
    EXPECT_EQ(r.straylightScale, 1.0F);
    EXPECT_EQ(r.straylightRadius[0], 2.0F);
    EXPECT_EQ(r.straylightRadius[12], 14.0F);
    EXPECT_NE(r.straylightRadius[13], r.straylightRadius[13]);
    EXPECT_EQ(r.straylightValue[0], 15.0F);
    EXPECT_EQ(r.straylightValue[12], 27.0F);
    EXPECT_NE(r.straylightValue[13], r.straylightValue[13]);
    EXPECT_EQ(r.straylightExponent, 28.0F);
    EXPECT_EQ(r.straylightOffset, 29.0F);
    EXPECT_EQ(r.straylightCentre, 30.0F);
    EXPECT_EQ(r.psfWidth, 31U);
    EXPECT_EQ(r.psfHeight, 32U);
    EXPECT_EQ(r.straylightPointCount, 13);
    EXPECT_EQ(count, 13);
    EXPECT_EQ(r.psf, nullptr);

    const float infinity = std::numeric_limits<float>::infinity();
    const std::pair<float, std::uint32_t> conversions[] = {
        {0.99F, 0},
        {-0.5F, 0},
        {-7.0F, 0},
        {223.999F, 223},
        {4294967040.0F, 4294967040U},
        {4294967296.0F, 0xFFFFFFFFU},
        {infinity, 0xFFFFFFFFU},
        {-infinity, 0},
        {std::numeric_limits<float>::quiet_NaN(), 0}};
    for (const auto& [value, expected] : conversions) {
        source[30] = value;
        source[31] = value;
        EXPECT_EQ(copy(128, 140), VANTRIC_OK);
        EXPECT_EQ(r.psfWidth, expected);
        EXPECT_EQ(r.psfHeight, expected);
    }
}

TEST(Hooks, CopyWigglingSplitsTheBlock) {
    std::array<float, 64> source;
    std::iota(source.begin(), source.end(), 1.0F);
    for (std::uint64_t size = 0; size <= 4 * 22; ++size) {
        const Record record = newRecord();
        VantricWigglingTable& table = record->frequencies[0].wigglingA;
        std::uint8_t count = 77;
        const std::uint64_t words = size / 4;
        const bool shaped = words >= 4 && (words - 1) % 3 == 0;
        const std::uint64_t n = shaped ? (words - 1) / 3 : 0;
        const std::uint32_t expected = !shaped ? VANTRIC_ERR_INVALID_DATA
                                       : n > 5 ? VANTRIC_ERR_BUFFER_TOO_SMALL
                                               : VANTRIC_OK;
        EXPECT_EQ(copyWiggling(source.data(), size, &table, 0, &count), expected) << size;
        if (expected != VANTRIC_OK) {
            EXPECT_EQ(count, 77);
            EXPECT_EQ(table.header, 0U);
            continue;
        }
        EXPECT_EQ(count, n);
        EXPECT_EQ(table.header, 0x3F800000U);  // the bits of 1.0
        for (std::uint64_t i = 0; i < n; ++i) {
            EXPECT_EQ(table.third[i], source[1 + i]);
            EXPECT_EQ(table.first[i], source[1 + n + i]);
            EXPECT_EQ(table.second[i], 2 + 2 * n + i);
        }
    }
    // 256 + 1 entries: the number is kept as 8 bits, so one entry is what counts.
    const std::vector<float> longSource(1 + 3 * 257, 2.0F);
    const Record record = newRecord();
    std::uint8_t count = 0;
    EXPECT_EQ(copyWiggling(longSource.data(), longSource.size() * 4,
                           &record->frequencies[0].wigglingB, 40, &count),
              VANTRIC_OK);
    EXPECT_EQ(count, 1);
}

TEST(Validation, NamesTheBlockThatIsMissing) {
    struct Case {
        const char* name;
        std::vector<int> met;
        std::uint32_t status;
        std::uint32_t id;
    };
    const std::vector<int> complete = {0, 1, 2, 3, 16, 17, 18, 19, 21, 22};
    const auto with = [&](std::vector<int> more) {
        more.insert(more.begin(), complete.begin(), complete.end());
        return more;
    };
    std::vector<Case> cases = {
        {"complete", complete, VANTRIC_OK, 255},
        {"with the optional kind", with({20}), VANTRIC_OK, 255},
        {"nothing", {}, VANTRIC_ERR_FIELD_EMPTY, 0},
        {"texts are optional", with({4, 5, 6, 7}), VANTRIC_OK, 255},
        {"codes met but unset", with({8}), VANTRIC_ERR_VALUE_UNSET, 8},
        {"straylight met but unset", with({9}), VANTRIC_ERR_VALUE_UNSET, 9},
        {"codes come before the missing frequency", {0, 1, 2, 3, 8}, VANTRIC_ERR_VALUE_UNSET, 8},
        {"second frequency complete", with({23, 24, 25, 26, 28, 29}), VANTRIC_OK, 255},
        {"second frequency without its kind 0", with({24}), VANTRIC_ERR_FIELD_EMPTY, 24},
        {"only the optional kind of the second", with({27}), VANTRIC_ERR_FIELD_EMPTY, 27},
        {"eighth frequency, last missing wins", with({65, 66}), VANTRIC_ERR_FIELD_EMPTY, 71},
        {"gap between frequencies", with({65, 66, 67, 68, 70, 71}), VANTRIC_OK, 255},
        {"two frequencies lack blocks", with({23, 24, 26, 28, 29, 30, 31, 32, 33, 35, 36}),
         VANTRIC_ERR_FIELD_EMPTY, 25},
    };
    for (const int missing : complete) {
        std::vector<int> met = complete;
        met.erase(std::find(met.begin(), met.end(), missing));
        cases.push_back({"one required block missing", met, VANTRIC_ERR_FIELD_EMPTY,
                         static_cast<std::uint32_t>(missing)});
    }
    for (const Case& item : cases) {
        SCOPED_TRACE(item.name);
        const Record record = newRecord();
        const Table table(vantric_createTessalyTable(record.get(), numPixels));
        for (const int id : item.met) {
            meet(*table, static_cast<std::uint32_t>(id));
        }
        RXReadResult result = {1, 255};
        EXPECT_EQ(validateWholeCalibration(table.get(), &result), item.status);
        EXPECT_EQ(result.failedBlockId, item.id);
        EXPECT_EQ(result.status, item.status == VANTRIC_OK ? 1 : item.status);
        EXPECT_EQ(validateWholeCalibration(table.get(), nullptr), item.status);
    }
}

TEST(Validation, PassesOnAnEntrysOwnStatus) {
    for (const bool isMet : {false, true}) {
        const Record record = newRecord();
        const Table table(vantric_createTessalyTable(record.get(), numPixels));
        RXBlockExpectation& lens = *vantric_findRXTableEntry(1, table.get())->expectation;
        meet(*table, 0);
        lens.status = VANTRIC_ERR_INVALID_DATA;
        lens.seen = isMet ? 1 : 0;
        RXReadResult result = {0, 255};
        EXPECT_EQ(validateWholeCalibration(table.get(), &result), VANTRIC_ERR_INVALID_DATA);
        EXPECT_EQ(result.failedBlockId, 1U);
    }
}
