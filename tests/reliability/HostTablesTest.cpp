// Block tables that a host composes itself: smaller, without expectations or count fields,
// unusable.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
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
    vantric::TableOwner model{vantric_createTessalyTable(record.get(), 32)};
};

// The file header is read first, so data of another format are told as such.
TEST_F(HostTables, MissingCallbacksAreRefusedBehindTheFileHeader) {
    const std::pair<Bytes, std::uint32_t> cases[] = {{data, invalidArgument},
                                                     {patched(data, 0, {'X'}), notSupported},
                                                     {prefix(data, 10), endOfData}};
    for (const auto& [read, status] : cases) {
        data = read;
        RXBlockTable* const tables[] = {table(1), table(1), table(1), table(1),
                                        vantric_createTable(3, 20)};
        tables[0]->context = nullptr;
        tables[1]->isFrequencyBlock = nullptr;
        tables[2]->validateBlock = nullptr;
        tables[3]->validateWholeCalibration = nullptr;
        for (RXBlockTable* used : tables) {
            EXPECT_EQ(readWith(used), status);
        }
        EXPECT_EQ(readWith(nullptr), status == invalidArgument ? tooSmall : status);
    }
}

TEST_F(HostTables, ImpossibleCapacitiesHoldNothing) {
    const RXBlockExpectation expectation = {};
    for (const auto capacity :
         {std::numeric_limits<std::uint64_t>::max(), std::uint64_t{1} << 60}) {
        const vantric::TableOwner huge(vantric_createTable(capacity, sizeof expectation));
        EXPECT_EQ(
            vantric_addRXTableEntry(0, nullptr, 0, nullptr, -1, nullptr, &expectation, huge.get()),
            tooSmall);
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

// The function of a host may look at the whole scratch, as the library's own mask copy once did.
std::uint64_t nonZero;
std::uint64_t toldSize;
std::uint32_t copyOfHost(const void* source, std::uint64_t size, void* /*destination*/,
                         std::uint64_t destinationSize, std::uint8_t* /*countField*/) {
    const auto* bytes = static_cast<const std::uint8_t*>(source);
    toldSize = destinationSize;
    nonZero += static_cast<std::uint64_t>(
        std::count_if(bytes + size, bytes + 32 * 4, [](std::uint8_t byte) { return byte != 0; }));
    return ok;
}

// A size means something to the function alone: one that no memory has fails no read.
TEST_F(HostTables, CopyFunctionsOfAHostSeeZerosBehindTheirBlockAndAnySize) {
    for (const std::uint64_t size : {std::uint64_t{0}, std::uint64_t{64}, std::uint64_t{1} << 40,
                                     std::numeric_limits<std::uint64_t>::max()}) {
        // Used memory for the scratch to come from.
        std::free(std::memset(std::malloc(32 * 12), 0xA5, 32 * 12));
        nonZero = 0;
        toldSize = 1;
        RXBlockTable* used = table(model->count);
        for (std::uint64_t i = 0; i < model->count; ++i) {
            const RXTableEntry& e = model->entries[i];
            const bool isHosts = e.id == RX_BLOCK_DATE;
            vantric_addRXTableEntry(e.id, e.destination, isHosts ? size : e.destinationSize,
                                    e.countField, e.expectedCount, isHosts ? copyOfHost : e.copy,
                                    nullptr, used);
        }
        EXPECT_EQ(readWith(used), ok) << size;
        EXPECT_EQ(nonZero, 0U);
        EXPECT_EQ(toldSize, size);
    }
}

TEST_F(HostTables, NoBlockIsToBlameForASuccess) {
    RXBlockTable* used = table(1);
    used->validateWholeCalibration = [](const RXBlockTable*, RXReadResult* result) {
        *result = {tooSmall, 7};
        return ok;
    };
    data = bytes(prefix(data, 11), 255);
    VantricStream stream = vantric_createStreamFromData(data.data(), data.size());
    const RXReadResult result = vantric_readRXCalibration(&stream, used);
    EXPECT_EQ(result.status, ok);
    EXPECT_EQ(result.failedBlockId, 255U);
}

// A table without expectations takes a mask in plain words too: their low bytes, and zeros behind.
TEST_F(HostTables, AMaskMayComeInWords) {
    const RXTableEntry* entry = vantric_findRXTableEntry(RX_BLOCK_MASK, model.get());
    const Bytes header = prefix(data, 11);
    for (const unsigned count : {1U, 5U, 31U, 32U}) {
        Bytes words;
        Bytes expected(32);
        for (unsigned i = 0; i < count; ++i) {
            expected[i] = static_cast<std::uint8_t>(i % 3);
            words = bytes(words, 0xAB, 0xCD, 0xE7, expected[i]);
        }
        data = bytes(header, int{RX_BLOCK_MASK}, int{RX_KIND_UINT32}, count, words, 255);
        RXBlockTable* used = table(1);
        ASSERT_EQ(vantric_addRXTableEntry(entry->id, entry->destination, entry->destinationSize,
                                          nullptr, -1, entry->copy, nullptr, used),
                  ok);
        std::memset(record->pixelMask, 0xAA, 32);
        (void)readWith(used);  // nothing else is there
        EXPECT_EQ(Bytes(record->pixelMask, record->pixelMask + 32), expected) << count;
    }
}

}  // namespace
