#include <gtest/gtest.h>

#include <cctype>
#include <cmath>
#include <cstring>
#include <fstream>
#include <set>
#include <sstream>

#include "calcut/vantric_rx.h"
#include "calibration/calibration.h"
#include "fixtures.h"

using namespace fixtures;
using namespace vantric;

namespace {

RXReadResult readInto(const Bytes& data, VantricCalibration& record) {
    return vantric_readRXHandlerCalibration(data.data(), data.size(), &record);
}

RXReadResult tryRead(const Bytes& data) {
    const Record record(allocateCalibration(
        static_cast<std::uint32_t>(std::max(1, vantric_getRXNumPixels(data.data(), data.size())))));
    return readInto(data, *record);
}

// The minimal calibration with bytes put in place of its block of that id (none: left out).
Bytes withBlock(int id, const Bytes& replacement) {
    const Bytes good = minimalPacked();
    Bytes out(good.begin(), good.begin() + 11);
    std::size_t at = 11;
    bool placed = false;
    while (at < good.size()) {
        const int here = good[at];
        if (!placed && here >= id) {
            out.insert(out.end(), replacement.begin(), replacement.end());
            placed = true;
        }
        const std::size_t count = here == 255 ? 0 : good[at + 2];
        const std::size_t size = here == 255 ? 1 : here == 0 ? 4 : here == 2 ? 8 : 3 + 4 * count;
        if (here != id) {
            out.insert(out.end(), good.begin() + static_cast<std::ptrdiff_t>(at),
                       good.begin() + static_cast<std::ptrdiff_t>(at + size));
        }
        at += size;
    }
    return out;
}

Bytes floatBlock(int id, int count) {
    Bytes block = bytes(id, 4, count);
    block.resize(block.size() + static_cast<std::size_t>(count) * 4, 0);
    return block;
}

Bytes customBlocks(const std::vector<int>& ids, int size = 2) {
    Bytes out;
    for (const int id : ids) {
        const Bytes block = bytes(id, 0, size, std::string(static_cast<std::size_t>(size), 'c'));
        out.insert(out.end(), block.begin(), block.end());
    }
    return out;
}

const std::set<std::uint32_t> documentedStatuses = {VANTRIC_OK,
                                                    VANTRIC_ERR_NOT_SUPPORTED,
                                                    VANTRIC_ERR_END_OF_DATA,
                                                    VANTRIC_ERR_VALUE_UNSET,
                                                    VANTRIC_ERR_BUFFER_TOO_SMALL,
                                                    VANTRIC_ERR_COUNT_TOO_SMALL,
                                                    VANTRIC_ERR_INVALID_DATA,
                                                    VANTRIC_ERR_FIELD_EMPTY,
                                                    VANTRIC_ERR_INVALID_ARGUMENT};

}  // namespace

TEST(Reader, FillsTheRecordFromLiteralBytes) {
    std::uint32_t status = 1;
    const Record record = readPlain(minimalPacked(), &status);
    ASSERT_EQ(status, VANTRIC_OK);
    const VantricCalibration& r = *record;
    EXPECT_EQ(r.version, 1);
    EXPECT_EQ(r.calibrationType, 3);
    EXPECT_EQ(r.imagerArea.areaX, 0U);
    EXPECT_EQ(r.imagerArea.areaY, 0U);
    EXPECT_EQ(r.imagerArea.columns, 4U);
    EXPECT_EQ(r.imagerArea.rows, 1U);
    EXPECT_EQ(r.auxFlag, 5);
    EXPECT_EQ(r.lensParameters[8], 1.0F);
    EXPECT_EQ(Bytes(r.pixelMask, r.pixelMask + 4), (Bytes{1, 0, 1, 1}));
    EXPECT_EQ(r.pixelValues[3], 1.0F);
    EXPECT_EQ(r.frequencyCount, 1);
    EXPECT_EQ(r.frequencies[0].frequencyId, 80U);
    EXPECT_EQ(r.frequencies[0].pixelTable[3], 1.0F);
    EXPECT_EQ(r.frequencies[0].valuesB[3], 1.0F);
    EXPECT_TRUE(std::isnan(r.frequencies[0].scalar));
    EXPECT_EQ(r.frequencies[0].wigglingA.capacity, 1);
    EXPECT_EQ(r.frequencies[0].wigglingB.second[0], 1U);
    EXPECT_EQ(r.customFieldCount, 0);
    EXPECT_EQ(r.firstCustomFieldId, 128);
    EXPECT_EQ(r.directions, nullptr);
    EXPECT_EQ(r.psf, nullptr);
    EXPECT_TRUE(std::isnan(r.straylightScale));
}

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
    const Record record = read(data, &status);
    ASSERT_EQ(status, VANTRIC_OK);
    EXPECT_EQ(record->lensParameters[4], -0.25F);
    EXPECT_EQ(Bytes(record->pixelMask, record->pixelMask + 4), (Bytes{1, 0, 1, 1}));
    const float values[] = {-1, 0, 1, 3};
    const float table[] = {0.5F, 0.75F, 1.0F, 1.5F};
    EXPECT_EQ(std::memcmp(record->pixelValues, values, sizeof values), 0);
    EXPECT_EQ(std::memcmp(record->frequencies[0].pixelTable, table, sizeof table), 0);
    EXPECT_EQ(record->frequencies[0].frequencyId, 60000000U);
    EXPECT_EQ(record->frequencies[0].wigglingB.third[0], 0.25F);
    EXPECT_EQ(record->frequencies[0].wigglingB.first[0], 2.0F);
    EXPECT_EQ(record->frequencies[0].wigglingB.second[0], 3U);
}

TEST(Reader, NamesTheStatusAndTheBlock) {
    struct Case {
        const char* name;
        Bytes data;
        std::uint32_t status;
        std::uint32_t id;
    };
    Bytes version2 = minimalPacked();
    version2[6] = 2;
    const std::vector<int> five = {128, 130, 140, 200, 254};
    const Bytes fiveAndOne = bytes(customBlocks({128, 129, 130, 131, 132}), bytes(200, 0, 1, 1));
    const std::vector<Case> cases = {
        {"no header", bytes("QOVRXG", 1, 0, 4, 0, 1), VANTRIC_ERR_NOT_SUPPORTED, 255},
        {"version 2", version2, VANTRIC_ERR_NOT_SUPPORTED, 255},
        {"no end marker", bytes("QOVRXF", 1, 0, 4, 0, 1), VANTRIC_ERR_END_OF_DATA, 255},
        {"nothing but the end marker", bytes("QOVRXF", 1, 0, 4, 0, 1, 255), VANTRIC_ERR_FIELD_EMPTY,
         0},
        {"kind above 6", withBlock(0, {0, 7, 1, 5}), VANTRIC_ERR_INVALID_DATA, 255},
        {"kind that the entry does not take", withBlock(0, {0, 1, 1, 5, 5}),
         VANTRIC_ERR_INVALID_DATA, 0},
        {"kind wrong and count too small", withBlock(1, {1, 0, 1, 5}), VANTRIC_ERR_COUNT_TOO_SMALL,
         1},
        {"kind wrong for a copied block", withBlock(2, bytes(2, 4, 1, 0, 0, 0, 0)),
         VANTRIC_ERR_INVALID_DATA, 2},
        {"eight lens parameters", withBlock(1, floatBlock(1, 8)), VANTRIC_ERR_COUNT_TOO_SMALL, 1},
        {"ten lens parameters", withBlock(1, floatBlock(1, 10)), VANTRIC_ERR_BUFFER_TOO_SMALL, 1},
        {"five mask values", withBlock(2, {2, 5, 5, 1, 0, 0, 0, 0}), VANTRIC_ERR_BUFFER_TOO_SMALL,
         2},
        {"three mask values", withBlock(2, {2, 5, 3, 1, 0, 0, 0, 7}), VANTRIC_OK, 255},
        {"mask of 0 bits", withBlock(2, {2, 5, 4, 0, 0, 0, 0, 7}), VANTRIC_ERR_INVALID_DATA, 2},
        {"three pixel values", withBlock(3, floatBlock(3, 3)), VANTRIC_ERR_COUNT_TOO_SMALL, 3},
        {"count of 2^31 is negative", withBlock(3, {3, 4, 249, 0x80, 0, 0, 0}),
         VANTRIC_ERR_COUNT_TOO_SMALL, 3},
        {"count of 2^32 - 1 without a minimum", withBlock(4, {4, 2, 249, 255, 255, 255, 255}),
         VANTRIC_ERR_BUFFER_TOO_SMALL, 4},
        {"negative count without a minimum", withBlock(16, {16, 2, 249, 255, 255, 255, 255}),
         VANTRIC_ERR_BUFFER_TOO_SMALL, 16},
        {"date of two words", withBlock(4, bytes(4, 2, 2, 0, 0, 0, 1, 0, 0, 0, 1)),
         VANTRIC_ERR_INVALID_DATA, 4},
        {"text longer than the scratch", withBlock(5, bytes(5, 0, 17, std::string(17, 't'))),
         VANTRIC_ERR_BUFFER_TOO_SMALL, 5},
        {"text", withBlock(5, bytes(5, 0, 16, std::string(16, 't'))), VANTRIC_OK, 255},
        {"one id code", withBlock(8, bytes(8, 1, 1, 0, 1)), VANTRIC_ERR_COUNT_TOO_SMALL, 8},
        {"unset id code", withBlock(8, bytes(8, 1, 2, 255, 255, 0, 1)), VANTRIC_ERR_VALUE_UNSET, 8},
        {"straylight on four pixels", withBlock(9, floatBlock(9, 32)), VANTRIC_ERR_BUFFER_TOO_SMALL,
         9},
        {"three wiggling words", withBlock(21, floatBlock(21, 3)), VANTRIC_ERR_INVALID_DATA, 21},
        {"payload cut short", bytes("QOVRXF", 1, 0, 4, 0, 1, 0, 0, 1, 5, 1, 4, 9, 0x40),
         VANTRIC_ERR_END_OF_DATA, 1},
        {"ids descend", withBlock(1, bytes(2, 5, 4, 1, 0, 0, 0, 7, floatBlock(1, 9))),
         VANTRIC_ERR_INVALID_DATA, 1},
        {"id twice", withBlock(0, {0, 0, 1, 5, 0, 0, 1, 5}), VANTRIC_ERR_INVALID_DATA, 0},
        {"unknown id: its header alone is read", withBlock(10, {10, 0, 9}), VANTRIC_OK, 255},
        {"unknown id: its payload is taken for a header", withBlock(10, {10, 0, 1, 5}),
         VANTRIC_ERR_INVALID_DATA, 255},
        {"five custom blocks", withBlock(128, customBlocks(five)), VANTRIC_OK, 255},
        {"a sixth", withBlock(128, fiveAndOne), VANTRIC_ERR_BUFFER_TOO_SMALL, 200},
        {"custom block cut short", withBlock(128, {128, 2, 9, 1}), VANTRIC_ERR_END_OF_DATA, 128},
        {"a cut sixth is one too many first",
         withBlock(128, bytes(customBlocks({128, 129, 130, 131, 132}), bytes(200, 2, 9, 1))),
         VANTRIC_ERR_BUFFER_TOO_SMALL, 200},
    };
    for (const Case& item : cases) {
        SCOPED_TRACE(item.name);
        const RXReadResult result = tryRead(item.data);
        EXPECT_EQ(result.status, item.status) << std::hex << result.status;
        EXPECT_EQ(result.failedBlockId, item.id);
        std::uint32_t status = 0;
        const Record record = readPlain(item.data, &status);
        EXPECT_EQ(record != nullptr, item.status == VANTRIC_OK);
    }
}

TEST(Reader, KeepsWhatWasDecodedBeforeAFailure) {
    const Record record(allocateCalibration(4));
    EXPECT_EQ(readInto(withBlock(1, floatBlock(1, 8)), *record).status,
              VANTRIC_ERR_COUNT_TOO_SMALL);
    EXPECT_EQ(record->lensParameterCount, 8);  // stored although the block failed
    EXPECT_EQ(record->auxFlag, 5);
    EXPECT_EQ(record->calibrationType, 3);
    EXPECT_EQ(record->frequencyCount, 8);
    EXPECT_EQ(record->customFieldCount, 5);
    EXPECT_EQ(record->firstCustomFieldId, 255);

    const Record wide(allocateCalibration(4));
    EXPECT_EQ(readInto(withBlock(1, floatBlock(1, 200)), *wide).status,
              VANTRIC_ERR_BUFFER_TOO_SMALL);
    EXPECT_EQ(wide->lensParameterCount, 200);
    EXPECT_EQ(vantric_getFieldSize(0, wide.get()), 36);  // never beyond the buffer
    EXPECT_EQ(readInto(minimalPacked(), *wide).status, VANTRIC_OK);
    EXPECT_EQ(wide->lensParameterCount, 9);
}

TEST(Reader, CustomBlocksKeepTheirSizesInOneByte) {
    const Bytes data =
        withBlock(128, bytes(customBlocks({128}, 40), bytes(129, 2, 2, 1, 2, 3, 4, 5, 6, 7, 8),
                             bytes(133, 0, 249, 0, 0, 0, 0), bytes(140, 0, 249, 0, 0, 1, 44),
                             std::string(300, 'x')));
    std::uint32_t status = 1;
    const Record record = readPlain(data, &status);
    ASSERT_EQ(status, VANTRIC_OK);
    EXPECT_EQ(record->customFieldCount, 4);
    const std::uint8_t sizes[] = {40, 8, 0, 44};
    for (int i = 0; i < 4; ++i) {
        EXPECT_EQ(record->customFields[i].size, sizes[i]);
        EXPECT_EQ(record->customFields[i].data, nullptr);
    }
}

TEST(Reader, CustomPassCopiesByIdAndRefusesWhatHasNoPlace) {
    struct Case {
        const char* name;
        Bytes blocks;
        std::uint32_t status;
    };
    const std::vector<Case> cases = {
        {"two in a row", customBlocks({128, 129}), VANTRIC_OK},
        {"none", {}, VANTRIC_OK},
        {"a gap has no field", customBlocks({128, 130}), VANTRIC_ERR_INVALID_DATA},
        {"packed kinds need scratch", bytes(128, 5, 1, 8, 0, 0, 0, 1),
         VANTRIC_ERR_BUFFER_TOO_SMALL},
        {"longer than a byte can say", bytes(128, 0, 249, 0, 0, 1, 1, std::string(257, 'x')),
         VANTRIC_ERR_BUFFER_TOO_SMALL},
        {"words are decoded", bytes(128, 2, 1, 1, 2, 3, 4), VANTRIC_OK},
    };
    for (const Case& item : cases) {
        SCOPED_TRACE(item.name);
        const Bytes data = withBlock(128, item.blocks);
        const Record record = readPlain(data);
        ASSERT_NE(record, nullptr);
        EXPECT_EQ(vantric_readCustomFields(data.data(), data.size(), record.get()), item.status);
    }
    const Bytes data = withBlock(128, bytes(128, 2, 1, 1, 2, 3, 4));
    const Record record = readPlain(data);
    vantric_readCustomFields(data.data(), data.size(), record.get());
    std::uint32_t word = 0;
    EXPECT_EQ(vantric_getField(128, record.get(), &word), VANTRIC_OK);
    EXPECT_EQ(word, 0x01020304U);

    // The second pass walks on its own: descending ids and cut payloads are noticed again.
    const Record again = readPlain(withBlock(128, customBlocks({128, 129})));
    const auto pass = [&](const Bytes& bytes) {
        return vantric_readRXCustomFields(bytes.data(), bytes.size(), again.get());
    };
    EXPECT_EQ(pass(bytes("QOVRXF", 2, 0, 4, 0, 1, 255)), VANTRIC_ERR_NOT_SUPPORTED);
    EXPECT_EQ(pass(bytes("QOVRXF", 1, 0, 4, 0, 1)), VANTRIC_ERR_END_OF_DATA);
    EXPECT_EQ(pass(bytes("QOVRXF", 1, 0, 4, 0, 1, 1, 0, 1, 7, 1, 0, 1, 7, 255)),
              VANTRIC_ERR_INVALID_DATA);
    EXPECT_EQ(pass(bytes("QOVRXF", 1, 0, 4, 0, 1, 1, 0, 2, 7)), VANTRIC_ERR_END_OF_DATA);
    EXPECT_EQ(pass(bytes("QOVRXF", 1, 0, 4, 0, 1, 1, 7, 2, 7)), VANTRIC_ERR_INVALID_DATA);
    EXPECT_EQ(pass(customBlocks({128})), VANTRIC_ERR_NOT_SUPPORTED);
    // Fields without data take nothing.
    EXPECT_EQ(pass(withBlock(128, customBlocks({128}))), VANTRIC_ERR_BUFFER_TOO_SMALL);
    VantricStream stream = vantric_createStreamFromData(data.data(), 4);
    EXPECT_EQ(vantric_readRXCustomData(&stream, again.get()), VANTRIC_ERR_END_OF_DATA);
}

TEST(Reader, NeedsACompleteTable) {
    const Bytes data = minimalPacked();
    VantricStream stream = vantric_createStreamFromData(data.data(), data.size());
    EXPECT_EQ(vantric_readRXCalibration(&stream, nullptr).status, VANTRIC_ERR_BUFFER_TOO_SMALL);
    EXPECT_EQ(vantric_readRXCalibration(&stream, vantric_createTable(3, 20)).status,
              VANTRIC_ERR_INVALID_ARGUMENT);
    const Record record(allocateCalibration(4));
    VantricStream truncated = vantric_createStreamFromData(data.data(), 10);
    const RXReadResult result =
        vantric_readRXCalibration(&truncated, vantric_createTessalyTable(record.get(), 4));
    EXPECT_EQ(result.status, VANTRIC_ERR_END_OF_DATA);
    EXPECT_EQ(result.failedBlockId, 255U);
}

// A host may read other formats of blocks with a table of its own.
TEST(Reader, HonoursForeignTables) {
    struct Case {
        std::int32_t expectedCount;
        std::uint32_t smallest;  ///< count that is enough
    };
    for (const Case& item : {Case{-5, 0}, Case{0, 4}, Case{2, 2}, Case{249, 249}, Case{250, 4},
                             Case{255, 24}, Case{1, 0}}) {
        for (const std::uint32_t count : {0U, 1U, 2U, 3U, 4U, 23U, 24U, 248U, 249U}) {
            const Record record(allocateCalibration(4));
            RXBlockTable* table = vantric_createTable(1, 0);
            table->isFrequencyBlock = [](const RXBlockHeader*) { return 0; };
            table->validateBlock = [](const RXBlockHeader*, RXBlockExpectation*) {
                return VANTRIC_OK;
            };
            table->validateWholeCalibration = [](const RXBlockTable*, RXReadResult*) {
                return VANTRIC_OK;
            };
            table->context = record.get();
            table->firstCustomBlockId = 200;
            std::uint8_t stored = 77;
            Bytes place(300);
            vantric_addRXTableEntry(3, place.data(), place.size(), &stored, item.expectedCount,
                                    nullptr, nullptr, table);
            const Bytes data = bytes("QOVRXF", 1, 0, 4, 0, 1, 3, 0, 249, 0, 0, 0, count,
                                     std::string(count, 'p'), 255);
            VantricStream stream = vantric_createStreamFromData(data.data(), data.size());
            EXPECT_EQ(vantric_readRXCalibration(&stream, table).status,
                      count >= item.smallest ? VANTRIC_OK : VANTRIC_ERR_COUNT_TOO_SMALL)
                << item.expectedCount << " " << count;
            EXPECT_EQ(stored, count);
            EXPECT_EQ(record->firstCustomFieldId, count >= item.smallest ? 200 : 255);
        }
    }
}

TEST(Handler, AnswersFromTheHeaderAlone) {
    const Bytes header = bytes("QOVRXF", 1, 0, 224, 0, 172);
    for (std::size_t size = 0; size < header.size(); ++size) {
        EXPECT_EQ(vantric_supportsRXCalibration(header.data(), size), 0);
        EXPECT_EQ(static_cast<std::uint32_t>(vantric_getRXNumPixels(header.data(), size)),
                  VANTRIC_ERR_END_OF_DATA);
    }
    EXPECT_EQ(vantric_supportsRXCalibration(header.data(), header.size()), 1);
    EXPECT_EQ(vantric_getRXNumPixels(header.data(), header.size()), 38528);
    EXPECT_EQ(vantric_getRXCalibrationType(), 3U);
    const Bytes version2 = bytes("QOVRXF", 2, 0, 2, 0, 3);
    EXPECT_EQ(vantric_supportsRXCalibration(version2.data(), version2.size()), 0);
    EXPECT_EQ(vantric_getRXNumPixels(version2.data(), version2.size()), 6);
    const Bytes other = bytes("QOVRXX", 1, 0, 2, 0, 3);
    EXPECT_EQ(static_cast<std::uint32_t>(vantric_getRXNumPixels(other.data(), other.size())),
              VANTRIC_ERR_NOT_SUPPORTED);
    const VantricCalibrationHandler handler = vantric_getRXCalibrationHandler();
    EXPECT_EQ(handler.supports, vantric_supportsRXCalibration);
    EXPECT_EQ(handler.readCalibration, vantric_readRXHandlerCalibration);
    EXPECT_EQ(handler.readCustomFields, vantric_readRXCustomFields);
    EXPECT_EQ(handler.calcPsfAndDirections, vantric_calcRXPsfAndDirections);
    EXPECT_EQ(handler.getCalibrationType, vantric_getRXCalibrationType);
    EXPECT_EQ(handler.getNumPixels, vantric_getRXNumPixels);
}

TEST(Handler, ComputesDirectionsAndLeavesTheRecordAloneOnFailure) {
    const Record record = readPlain(minimalPacked());
    EXPECT_EQ(vantric_calcRXPsfAndDirections(record.get(), 3), VANTRIC_ERR_ALREADY_SET);
    EXPECT_EQ(record->directions, nullptr);
    EXPECT_EQ(vantric_calcRXPsfAndDirections(record.get(), 0xFFFFFFFFU),
              VANTRIC_ERR_BUFFER_TOO_SMALL);
    EXPECT_EQ(vantric_calcRXPsfAndDirections(record.get(), 4), VANTRIC_OK);
    ASSERT_NE(record->directions, nullptr);
    EXPECT_EQ(record->psf, nullptr);
    EXPECT_EQ(vantric_calcRXPsfAndDirections(record.get(), 4), VANTRIC_OK);  // replaces them
}

// Every shorter prefix of a calibration with all kinds of blocks fails with a documented status,
// from buffers of exactly that size.
TEST(Hostile, EveryTruncationIsRefused) {
    for (const Bytes& good : {minimalPacked(), smallPacked()}) {
        ASSERT_NE(read(good), nullptr);
        for (std::size_t size = 0; size < good.size(); ++size) {
            const Bytes data(good.begin(), good.begin() + static_cast<std::ptrdiff_t>(size));
            std::uint32_t status = 0;
            EXPECT_EQ(read(data, &status), nullptr);
            EXPECT_EQ(status, size < 11 ? VANTRIC_ERR_NOT_SUPPORTED : VANTRIC_ERR_END_OF_DATA)
                << size;
        }
    }
}

TEST(Hostile, EveryFlippedBitEndsInADocumentedStatus) {
    for (const Bytes& good : {minimalPacked(), smallPacked()}) {
        std::size_t accepted = 0;
        for (std::size_t bit = 0; bit < good.size() * 8; ++bit) {
            Bytes data = good;
            data[bit / 8] = static_cast<std::uint8_t>(data[bit / 8] ^ (1U << (bit % 8)));
            std::uint32_t status = 0;
            const Record record = read(data, &status);
            EXPECT_EQ(documentedStatuses.count(status), 1U) << std::hex << status;
            EXPECT_EQ(record != nullptr, status == VANTRIC_OK);
            if (record) {
                ++accepted;
                vantric_readCustomFields(data.data(), data.size(), record.get());
                const Record copy(vantric_copyCalibration(record.get()));
                Bytes field(256);
                for (std::uint32_t id = 0; id < 256; ++id) {
                    if (vantric_getFieldSize(id, copy.get()) > 0) {
                        vantric_getField(id, copy.get(), field.data());
                    }
                }
            }
        }
        EXPECT_GT(accepted, good.size());  // values carry no checksum of their own
    }
}
