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

#include "calcut/vantric_rx.h"
#include "calibration/calibration.h"
#include "calibration/dispatcher.h"
#include "fixtures.h"

using namespace fixtures;
using namespace vantric;
namespace writer = calcut::writer;

namespace {

RXReadResult readInto(const Bytes& data, VantricCalibration& record) {
    return vantric_readRXHandlerCalibration(data.data(), data.size(), &record);
}

RXReadResult tryRead(const Bytes& data) {
    const Record record(allocateCalibration(
        static_cast<std::uint32_t>(std::max(1, vantric_getRXNumPixels(data.data(), data.size())))));
    return readInto(data, *record);
}

// The minimal calibration with bytes in place of its blocks of these ids (none: left out).
Bytes withBlocks(int first, int last, const Bytes& replacement) {
    const Bytes good = minimalPacked();
    Bytes before = prefix(good, 11);
    std::size_t at = 11;
    while (good[at] <= last && good[at] != 255) {
        const std::size_t size = good[at] == 0 ? 4 : good[at] == 2 ? 8 : 3U + 4U * good[at + 2];
        const Bytes block(&good[at], &good[at] + size);
        before = good[at] < first ? bytes(before, block) : before;
        at += size;
    }
    return bytes(before, replacement, Bytes(&good[at], good.data() + good.size()));
}

Bytes withBlock(int id, const Bytes& replacement) {
    return withBlocks(id, id, replacement);
}

Bytes floatBlock(int id, std::size_t count) {
    return bytes(id, 4, count, Bytes(count * 4));
}

Bytes customBlocks(const std::vector<int>& ids) {
    Bytes out;
    for (const int id : ids) {
        out = bytes(out, id, 0, 2, "cc");
    }
    return out;
}

}  // namespace

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

TEST(Reader, NamesTheStatusAndTheBlock) {
    using Case = std::tuple<const char*, Bytes, std::uint32_t, std::uint32_t>;
    const Bytes header = bytes("QOVRXF", 1, 0, 4, 0, 1);
    const Bytes five = customBlocks({128, 129, 130, 131, 132});
    const Bytes cutDate = {4, 2, 249, 255, 255, 255, 255};
    const Bytes twoWords = {4, 2, 2, 0, 0, 0, 1, 0, 0, 0, 1};
    const Bytes swapped = bytes(2, 5, 4, 1, 0, 0, 0, 7, floatBlock(1, 9));
    const Bytes text16 = bytes(5, 0, 16, std::string(16, 't'));
    const Bytes text17 = bytes(5, 0, 17, std::string(17, 't'));
    const std::vector<Case> cases = {
        {"no header", bytes("QOVRXG", 1, 0, 4, 0, 1), notSupported, 255},
        {"version 2", patched(minimalPacked(), 6, {2}), notSupported, 255},
        {"no end marker", header, endOfData, 255},
        {"nothing but the end marker", bytes(header, 255), fieldEmpty, 0},
        {"kind above 6", withBlock(0, {0, 7, 1, 5}), invalidData, 255},
        {"kind that the entry does not take", withBlock(0, {0, 1, 1, 5, 5}), invalidData, 0},
        {"kind wrong and count too small", withBlock(1, {1, 0, 1, 5}), countTooSmall, 1},
        {"kind wrong for a copied block", withBlock(2, floatBlock(2, 1)), invalidData, 2},
        {"eight lens parameters", withBlock(1, floatBlock(1, 8)), countTooSmall, 1},
        {"ten lens parameters", withBlock(1, floatBlock(1, 10)), tooSmall, 1},
        {"five mask values", withBlock(2, {2, 5, 5, 1, 0, 0, 0, 0}), tooSmall, 2},
        {"three mask values", withBlock(2, {2, 5, 3, 1, 0, 0, 0, 7}), ok, 255},
        {"mask of 0 bits", withBlock(2, {2, 5, 4, 0, 0, 0, 0, 7}), invalidData, 2},
        {"three pixel values", withBlock(3, floatBlock(3, 3)), countTooSmall, 3},
        {"count of 2^31 is negative", withBlock(3, {3, 4, 249, 0x80, 0, 0, 0}), countTooSmall, 3},
        {"count of 2^32 - 1 without a minimum", withBlock(4, cutDate), tooSmall, 4},
        {"and of a frequency", withBlock(16, {16, 2, 249, 255, 255, 255, 255}), tooSmall, 16},
        {"date of two words", withBlock(4, twoWords), invalidData, 4},
        {"text longer than the scratch", withBlock(5, text17), tooSmall, 5},
        {"text", withBlock(5, text16), ok, 255},
        {"one id code", withBlock(8, {8, 1, 1, 0, 1}), countTooSmall, 8},
        {"unset id code", withBlock(8, {8, 1, 2, 255, 255, 0, 1}), valueUnset, 8},
        {"straylight on four pixels", withBlock(9, floatBlock(9, 32)), tooSmall, 9},
        {"three wiggling words", withBlock(21, floatBlock(21, 3)), invalidData, 21},
        {"payload cut short", bytes(header, 0, 0, 1, 5, 1, 4, 9, 0x40), endOfData, 1},
        {"ids descend", withBlock(1, swapped), invalidData, 1},
        {"id twice", withBlock(0, {0, 0, 1, 5, 0, 0, 1, 5}), invalidData, 0},
        {"unknown id: its header alone is read", withBlock(10, {10, 0, 9}), ok, 255},
        {"its payload is taken for a header", withBlock(10, {10, 0, 1, 5}), invalidData, 255},
        {"five blocks", withBlock(128, customBlocks({128, 130, 140, 200, 254})), ok, 255},
        {"a sixth", withBlock(128, bytes(five, 200, 0, 1, 1)), tooSmall, 200},
        {"custom block cut short", withBlock(128, {128, 2, 9, 1}), endOfData, 128},
        {"cut sixth: too many first", withBlock(128, bytes(five, 200, 2, 9, 1)), tooSmall, 200},
    };
    for (const auto& [name, data, status, id] : cases) {
        SCOPED_TRACE(name);
        const RXReadResult result = tryRead(data);
        EXPECT_EQ(result.status, status) << std::hex << result.status;
        EXPECT_EQ(result.failedBlockId, id);
        EXPECT_EQ(readPlain(data) != nullptr, status == ok);
    }
}

TEST(Reader, KeepsWhatWasDecodedBeforeAFailure) {
    const Record record(allocateCalibration(4));
    VantricCalibration& r = *record;
    EXPECT_EQ(readInto(withBlock(1, floatBlock(1, 8)), r).status, countTooSmall);
    EXPECT_EQ(r.lensParameterCount, 8);  // stored although the block failed
    EXPECT_EQ(std::tuple(r.auxFlag, r.calibrationType, r.frequencyCount, r.customFieldCount,
                         r.firstCustomFieldId),
              std::tuple(5, 3, 8, 5, 255));
    EXPECT_EQ(readInto(withBlock(1, floatBlock(1, 200)), r).status, tooSmall);
    EXPECT_EQ(r.lensParameterCount, 200);
    EXPECT_EQ(vantric_getFieldSize(0, &r), 36);  // never beyond the buffer
    EXPECT_EQ(readInto(minimalPacked(), r).status, ok);
    EXPECT_EQ(r.lensParameterCount, 9);
}

TEST(Reader, SecondReadsStayInsideTheRecord) {
    const Record record = readPlain(minimalPacked());
    EXPECT_EQ(readInto(smallPacked(), *record).status, tooSmall);
    EXPECT_EQ(record->imagerArea.columns, 4U);
    // A short mask leaves zeros behind it, also when a block behind it fails.
    const Bytes shortMask = {2, 5, 1, 1, 0, 0, 0, 1};
    for (const Bytes& behind : {floatBlock(3, 4), floatBlock(3, 3)}) {
        EXPECT_EQ(readInto(withBlock(2, {2, 5, 4, 1, 0, 0, 0, 15}), *record).status, ok);
        EXPECT_EQ(readInto(withBlocks(2, 3, bytes(shortMask, behind)), *record).status,
                  behind.size() == 19 ? ok : countTooSmall);
        EXPECT_EQ(Bytes(record->pixelMask, record->pixelMask + 4), (Bytes{1, 0, 0, 0}));
    }
    for (const bool straylight : {false, true}) {  // comes with another PSF
        const Record full = read(smallPacked());
        EXPECT_EQ(readInto(straylight ? smallPacked() : minimalPacked(), *full).status, ok);
        EXPECT_EQ(full->psf == nullptr, straylight);
    }
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
