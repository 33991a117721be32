// Block tables that a host composes itself: smaller, without expectations or count fields,
// unusable.
#include <gtest/gtest.h>

#include <functional>
#include <limits>
#include <vector>

#include "calcut/vantric_rx.h"
#include "fixtures.h"

using fixtures::Bytes;

namespace {

// A record for the fixtures' small calibration, and the library's own table for it.
class HostTables : public ::testing::Test {
  protected:
    HostTables() : model(vantric_createTessalyTable(record.get(), 32)) {}
    ~HostTables() override { vantric_freeRXTable(model); }
    HostTables(const HostTables&) = delete;
    HostTables& operator=(const HostTables&) = delete;

    // A table with the library's callbacks and no entries.
    [[nodiscard]] RXBlockTable* table(std::uint64_t capacity, std::uint64_t expectationSize) const {
        RXBlockTable* made = vantric_createTable(capacity, expectationSize);
        made->context = record.get();
        made->isFrequencyBlock = model->isFrequencyBlock;
        made->validateBlock = model->validateBlock;
        made->validateWholeCalibration = model->validateWholeCalibration;
        made->firstCustomBlockId = model->firstCustomBlockId;
        return made;
    }

    [[nodiscard]] RXReadResult readWith(RXBlockTable* used) const {
        VantricStream stream = vantric_createStreamFromData(data.data(), data.size());
        return vantric_readRXCalibration(&stream, used);
    }

    Bytes data = fixtures::smallPacked();
    fixtures::Record record = fixtures::readPlain(data);
    RXBlockTable* model;
};

TEST_F(HostTables, MissingCallbacksAreRefused) {
    const std::vector<std::function<void(RXBlockTable&)>> removals = {
        [](RXBlockTable& used) { used.context = nullptr; },
        [](RXBlockTable& used) { used.isFrequencyBlock = nullptr; },
        [](RXBlockTable& used) { used.validateBlock = nullptr; },
        [](RXBlockTable& used) { used.validateWholeCalibration = nullptr; }};
    for (const auto& remove : removals) {
        RXBlockTable* used = table(1, 0);
        remove(*used);
        EXPECT_EQ(readWith(used).status, VANTRIC_ERR_INVALID_ARGUMENT);
    }
    EXPECT_EQ(readWith(nullptr).status, VANTRIC_ERR_BUFFER_TOO_SMALL);
}

// Every entry of the library's own table, but nothing is expected and no counts are wanted.
TEST_F(HostTables, ExpectationsAndCountsMayBeLeftOut) {
    RXBlockTable* used = table(model->count, 0);
    for (std::uint64_t i = 0; i < model->count; ++i) {
        const RXTableEntry& entry = model->entries[i];
        ASSERT_EQ(vantric_addRXTableEntry(entry.id, entry.destination, entry.destinationSize,
                                          nullptr, entry.expectedCount, entry.copy, nullptr, used),
                  VANTRIC_OK);
    }
    record->straylightPointCount = 0;
    record->frequencies[0].wigglingA.first[0] = -1.0F;
    const fixtures::Record expected = fixtures::readPlain(data);
    EXPECT_EQ(readWith(used).status, VANTRIC_OK);
    EXPECT_EQ(record->frequencies[0].wigglingA.first[0],
              expected->frequencies[0].wigglingA.first[0]);
    EXPECT_EQ(record->straylightPointCount, VANTRIC_STRAYLIGHT_POINTS);
    EXPECT_EQ(record->frequencyCount, expected->frequencyCount);
}

TEST_F(HostTables, CapacitiesThatCannotBeHad) {
    const RXBlockExpectation expectation = {};
    for (const std::uint64_t capacity :
         {std::numeric_limits<std::uint64_t>::max(), std::uint64_t{1} << 60}) {
        RXBlockTable* huge = vantric_createTable(capacity, sizeof expectation);
        EXPECT_EQ(vantric_addRXTableEntry(0, nullptr, 0, nullptr, -1, nullptr, &expectation, huge),
                  VANTRIC_ERR_BUFFER_TOO_SMALL);
        vantric_freeRXTable(huge);
    }
}

}  // namespace
