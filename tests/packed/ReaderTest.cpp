#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstring>
#include <fstream>
#include <functional>
#include <sstream>
#include <stdexcept>
#include <tuple>

#include "Blocks.h"
#include "calcut/vantric_rx.h"
#include "calibration/calibration.h"
#include "calibration/dispatcher.h"

using namespace fixtures;
using namespace vantric;
namespace writer = calcut::writer;

// docs/formats.md lists a calibration byte by byte: offset in columns 0 to 3, bytes up to
// column 39.
TEST(Reader, ReadsTheExampleOfTheDocument) {
    std::ifstream document(CALCUT_SOURCE_DIR "/docs/formats.md");
    Bytes data;
    std::string line;
    while (std::getline(document, line) && line.rfind("### 4.10 A complete example", 0) != 0) {
    }
    while (std::getline(document, line) && line.rfind("As the payload", 0) != 0) {
        std::istringstream words(line.size() > 4 ? line.substr(4, 35) : "");
        const std::string offset = line.substr(0, 4);
        const std::size_t digit = offset.find_first_not_of(' ');
        if (digit == std::string::npos || std::isdigit(offset[digit]) == 0 ||
            std::stoul(offset) != data.size()) {
            continue;
        }
        for (std::string word; words >> word;) {
            data.push_back(static_cast<std::uint8_t>(std::stoul(word, nullptr, 16)));
        }
    }
    ASSERT_EQ(data.size(), 181U);
    std::uint32_t status = 1;
    const Record record = readPlain(data, &status);
    ASSERT_EQ(status, ok);
    const VantricCalibration& r = *record;
    const VantricFrequencyRecord& f = r.frequencies[0];
    const auto& [x, y, columns, rows] = r.imagerArea;
    EXPECT_EQ(std::tuple(x, y, columns, rows), std::tuple(0, 0, 2, 2));
    EXPECT_EQ(std::tuple(r.version, r.calibrationType, r.frequencyCount, r.customFieldCount,
                         r.firstCustomFieldId, f.frequencyId, f.wigglingA.capacity),
              std::tuple(1, 3, 1, 0, 128, 60000000, 1));
    EXPECT_EQ(Bytes(r.pixelMask, r.pixelMask + 4), (Bytes{1, 0, 1, 1}));
    const float values[] = {-1, 0, 1, 3};
    const float table[] = {0.5F, 0.75F, 1.0F, 1.5F};
    EXPECT_EQ(std::memcmp(r.pixelValues, values, sizeof values), 0);
    EXPECT_EQ(std::memcmp(f.pixelTable, table, sizeof table), 0);
    EXPECT_EQ(std::tuple(r.lensParameters[4], f.valuesB[0], f.wigglingB.third[0],
                         f.wigglingB.first[0], f.wigglingB.second[0]),
              std::tuple(-0.25F, 1.0F, 0.25F, 2.0F, 3U));
    EXPECT_TRUE(std::isnan(f.scalar) && std::isnan(r.straylightScale));
    EXPECT_TRUE(r.directions == nullptr && r.psf == nullptr);
}

TEST(Reader, CustomBlocksKeepTheirSizesInOneByte) {
    const Record record =
        readPlain(withBlock(128, bytes(128, 0, 40, Bytes(40), 129, 2, 2, Bytes(8), 133, 0, 249,
                                       Bytes(4), 140, 0, 249, 0, 0, 1, 44, Bytes(300))));
    ASSERT_NE(record, nullptr);
    EXPECT_EQ(record->customFieldCount, 4);
    const std::uint8_t sizes[] = {40, 8, 0, 44};
    for (int i = 0; i < 4; ++i) {
        EXPECT_EQ(record->customFields[i].size, sizes[i]);
        EXPECT_EQ(record->customFields[i].data, nullptr);
    }
}

TEST(Reader, CustomPassCopiesByIdAndRefusesWhatHasNoPlace) {
    const Bytes words = {128, 2, 1, 1, 2, 3, 4};
    const std::pair<Bytes, std::uint32_t> cases[] = {
        {customBlocks({128, 129}), ok},
        {{}, ok},
        {customBlocks({128, 130}), tooSmall},  // a gap: fields not in use have no room
        {bytes(customBlocks({128}), 130, 0, 249, Bytes(4)), ok},
        {customBlocks({128, 133}), invalidData},                            // no such field
        {{128, 5, 1, 8, 0, 0, 0, 1}, tooSmall},                             // would need scratch
        {bytes(128, 0, 249, 0, 0, 1, 1, std::string(257, 'x')), tooSmall},  // more than a byte
        {words, ok}};
    Record record;
    for (const auto& [blocks, status] : cases) {
        const Bytes data = withBlock(128, blocks);
        record = readPlain(data);
        ASSERT_NE(record, nullptr);
        EXPECT_EQ(vantric_readCustomFields(data.data(), data.size(), record.get()), status);
        // Asked for once, whatever came of it: the buffers stay.
        EXPECT_EQ(record->customFields[0].data != nullptr, !blocks.empty());
        EXPECT_EQ(vantric_readCustomFields(data.data(), data.size(), record.get()),
                  blocks.empty() ? ok : invalidArgument);
    }
    std::uint32_t word = 0;
    EXPECT_EQ(vantric_getField(128, record.get(), &word), ok);
    EXPECT_EQ(word, 0x01020304U);

    // The second pass walks on its own: descending ids and cut payloads are noticed again.
    const Record again = readPlain(withBlock(128, customBlocks({128, 129})));
    const Bytes header = bytes("QOVRXF", 1, 0, 4, 0, 1);
    const std::pair<Bytes, std::uint32_t> passes[] = {
        {bytes("QOVRXF", 2, 0, 4, 0, 1, 255), notSupported},
        {customBlocks({128}), notSupported},
        {header, endOfData},
        {bytes(header, 1, 0, 1, 7, 1, 0, 1, 7, 255), invalidData},
        {bytes(header, 1, 0, 2, 7), endOfData},
        {bytes(header, 1, 7, 2, 7), invalidData},
        {withBlock(128, customBlocks({128})), tooSmall}};  // fields without data take nothing
    for (const auto& [data, status] : passes) {
        EXPECT_EQ(vantric_readRXCustomFields(data.data(), data.size(), again.get()), status);
    }
    VantricStream stream = vantric_createStreamFromData(header.data(), 4);
    EXPECT_EQ(vantric_readRXCustomData(&stream, again.get()), endOfData);
}

// A host may read other formats of blocks with a table of its own.
TEST(Reader, HonoursForeignTables) {
    const std::pair<std::int32_t, std::uint32_t> cases[] = {
        // expected count, smallest enough
        {-5, 0}, {0, 4}, {2, 2}, {249, 249}, {250, 4}, {255, 24}, {1, 0}};
    for (const auto& [expectedCount, smallest] : cases) {
        for (const std::uint32_t count : {0U, 1U, 2U, 3U, 4U, 23U, 24U, 248U, 249U}) {
            const Record record(allocateCalibration(4));
            RXBlockTable* table = vantric_createTable(1, 0);
            table->isFrequencyBlock = [](auto...) { return 0; };
            table->validateBlock = [](auto...) { return ok; };
            table->validateWholeCalibration = [](auto...) { return ok; };
            table->context = record.get();
            table->firstCustomBlockId = 200;
            std::uint8_t stored = 77;
            Bytes place(300);
            vantric_addRXTableEntry(3, place.data(), place.size(), &stored, expectedCount, nullptr,
                                    nullptr, table);
            const Bytes data = bytes("QOVRXF", 1, 0, 4, 0, 1, 3, 0, 249, 0, 0, 0, count,
                                     std::string(count, 'p'), 255);
            VantricStream stream = vantric_createStreamFromData(data.data(), data.size());
            EXPECT_EQ(vantric_readRXCalibration(&stream, table).status,
                      count >= smallest ? ok : countTooSmall)
                << expectedCount << " " << count;
            EXPECT_EQ(stored, count);
            EXPECT_EQ(record->firstCustomFieldId, count >= smallest ? 200 : 255);
        }
    }
}

TEST(Handler, AnswersFromTheHeaderAlone) {
    const Bytes header = bytes("QOVRXF", 1, 0, 224, 0, 172);
    using Case = std::tuple<Bytes, int, std::uint32_t>;
    for (const auto& [data, supported, pixels] :
         {Case{header, 1, 38528}, Case{bytes("QOVRXF", 2, 0, 2, 0, 3), 0, 6},
          Case{bytes("QOVRXX", 1, 0, 2, 0, 3), 0, notSupported}, Case{{}, 0, endOfData},
          Case{prefix(header, 10), 0, endOfData}}) {
        EXPECT_EQ(vantric_supportsRXCalibration(data.data(), data.size()), supported);
        EXPECT_EQ(static_cast<std::uint32_t>(vantric_getRXNumPixels(data.data(), data.size())),
                  pixels);
    }
    EXPECT_EQ(vantric_getRXCalibrationType(), 3U);
    const VantricCalibrationHandler h = vantric_getRXCalibrationHandler();
    const VantricCalibrationHandler expected = {
        vantric_supportsRXCalibration, vantric_readRXHandlerCalibration,
        vantric_readRXCustomFields,    vantric_calcRXPsfAndDirections,
        vantric_getRXCalibrationType,  vantric_getRXNumPixels};
    EXPECT_EQ(std::memcmp(&h, &expected, sizeof h), 0);
}

TEST(Handler, ComputesDirectionsAndLeavesTheRecordAloneOnFailure) {
    const Record record = readPlain(minimalPacked());
    for (const auto& [pixels, status] : {std::pair(3U, alreadySet), {0xFFFFFFFFU, alreadySet}}) {
        EXPECT_EQ(vantric_calcRXPsfAndDirections(record.get(), pixels), status);
        EXPECT_EQ(record->directions, nullptr);
    }
    for (int replaced = 0; replaced < 2; ++replaced) {
        EXPECT_EQ(vantric_calcRXPsfAndDirections(record.get(), 4), ok);
        ASSERT_NE(record->directions, nullptr);
        EXPECT_EQ(record->psf, nullptr);
    }
}

// Of every shorter prefix and every flipped bit, in buffers of exactly that size: a cut has the
// status of a whole read, its lens and its mask.
TEST(Hostile, ACutHasTheStatusOfAWholeRead) {
    const auto statusOf = [](const Bytes& data) {
        std::uint32_t status = 0;
        const Record whole = read(data, &status);
        const auto cut = readThroughHandlers(data.data(), data.size(), Wanted::cut, true);
        EXPECT_EQ(cut.status, status);
        EXPECT_EQ(cut.record == nullptr, whole == nullptr);
        EXPECT_TRUE(whole == nullptr ||
                    (std::memcmp(whole->lensParameters, cut.record->lensParameters, 36) == 0 &&
                     std::memcmp(whole->pixelMask, cut.record->pixelMask, cut.numPixels) == 0));
        return status;
    };
    for (const Bytes& good : {minimalPacked(), smallPacked()}) {
        EXPECT_EQ(statusOf(good), ok);
        for (std::size_t size = 0; size < good.size(); ++size) {
            EXPECT_EQ(statusOf(prefix(good, size)), size < 11 ? notSupported : endOfData) << size;
        }
        for (std::size_t bit = 0; bit < 8 * good.size(); ++bit) {
            SCOPED_TRACE(bit);
            statusOf(flipped(good, bit));
        }
    }
}
