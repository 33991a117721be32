// Block tables that a host composes itself: smaller, without expectations or count fields,
// unusable.
#include <gtest/gtest.h>

#include <limits>

#include "fixtures.h"

using namespace fixtures;

namespace {

// A record for the fixtures' small calibration, and the library's own table for it.
class HostTables : public ::testing::Test {
  protected:
    // A table with the library's callbacks and no entries.
    [[nodiscard]] RXBlockTable* table(std::uint64_t capacity) const {
        RXBlockTable* made = vantric_createTable(capacity, 0);
        made->context = record.get();
        made->isFrequencyBlock = model->isFrequencyBlock;
        made->validateBlock = model->validateBlock;
        made->validateWholeCalibration = model->validateWholeCalibration;
        made->firstCustomBlockId = model->firstCustomBlockId;
        return made;
    }

    [[nodiscard]] std::uint32_t readWith(RXBlockTable* used) const {
        VantricStream stream = vantric_createStreamFromData(data.data(), data.size());
        return vantric_readRXCalibration(&stream, used).status;
    }

    Bytes data = smallPacked();
    Record record = readPlain(data);
    std::unique_ptr<RXBlockTable, decltype(&vantric_freeRXTable)> model = {
        vantric_createTessalyTable(record.get(), 32), &vantric_freeRXTable};
};

TEST_F(HostTables, MissingCallbacksAndImpossibleCapacitiesAreRefused) {
    RXBlockTable* const tables[] = {table(1), table(1), table(1), table(1),
                                    vantric_createTable(3, 20)};
    tables[0]->context = nullptr;
    tables[1]->isFrequencyBlock = nullptr;
    tables[2]->validateBlock = nullptr;
    tables[3]->validateWholeCalibration = nullptr;
    for (RXBlockTable* used : tables) {
        EXPECT_EQ(readWith(used), invalidArgument);
    }
    EXPECT_EQ(readWith(nullptr), tooSmall);
    data.resize(10);
    EXPECT_EQ(readWith(table(1)), endOfData);
    const RXBlockExpectation expectation = {};
    for (const auto capacity :
         {std::numeric_limits<std::uint64_t>::max(), std::uint64_t{1} << 60}) {
        RXBlockTable* huge = vantric_createTable(capacity, sizeof expectation);
        EXPECT_EQ(vantric_addRXTableEntry(0, nullptr, 0, nullptr, -1, nullptr, &expectation, huge),
                  tooSmall);
        vantric_freeRXTable(huge);
    }
}

// Every entry of the library's own table, but nothing is expected and no counts are wanted.
TEST_F(HostTables, ExpectationsAndCountsMayBeLeftOut) {
    RXBlockTable* used = table(model->count);
    for (std::uint64_t i = 0; i < model->count; ++i) {
        const RXTableEntry& e = model->entries[i];
        ASSERT_EQ(vantric_addRXTableEntry(e.id, e.destination, e.destinationSize, nullptr,
                                          e.expectedCount, e.copy, nullptr, used),
                  ok);
    }
    record->straylightPointCount = 0;
    float& filled = record->frequencies[0].wigglingA.first[0];
    const float expected = filled;
    filled = -1.0F;
    const std::uint32_t frequencies = record->frequencyCount;
    EXPECT_EQ(readWith(used), ok);
    EXPECT_EQ(filled, expected);
    EXPECT_EQ(record->straylightPointCount, VANTRIC_STRAYLIGHT_POINTS);
    EXPECT_EQ(record->frequencyCount, frequencies);
}

}  // namespace
