// Reads into a record that was read before. Whatever stays of the earlier calibration, no buffer is
// used beyond the room that it has.
#include <gtest/gtest.h>

#include <cstring>

#include "Blocks.h"
#include "calibration/calibration.h"
#include "calibration/packed/Handler.h"

using namespace fixtures;
using namespace vantric;

namespace {

Bytes sized(Bytes calibration, unsigned columns, unsigned rows) {
    return patched(std::move(calibration), 7, bytes(columns >> 8, columns, rows >> 8, rows));
}

// A file header that claims an image, and nothing behind it.
Bytes claim(unsigned columns, unsigned rows) {
    return sized(prefix(minimalPacked(), 11), columns, rows);
}

Bytes calibrationOf(std::uint16_t columns, std::uint16_t rows) {
    return calcut::writer::packCalibration(
        calcut::writer::makeCalibration({.columns = columns, .rows = rows, .frequencies = 1}));
}

std::uint64_t pixelsOfRecord(const VantricCalibration& record) {
    return pixelsOf(record.imagerArea);
}

std::uint32_t addDirections(VantricCalibration& record, std::uint32_t count) {
    const std::vector<float> values(std::size_t{3} * count + 1);
    return vantric_addDirections(&record, values.data(), count);
}

}  // namespace

TEST(SecondRead, StaysInsideTheRecord) {
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
}

TEST(SecondRead, CountsOfARefusedBlockBoundTheNextRead) {
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

// The room is that of the smallest image, also of one without pixels.
TEST(SecondRead, HasTheRoomOfTheSmallestImage) {
    const Bytes large = calibrationOf(19, 30);
    for (const auto& [columns, rows] : {std::pair(68U, 0U), {0U, 38U}, {1U, 3U}}) {
        for (const bool throughACopy : {false, true}) {
            Record record = readPlain(calibrationOf(2, 2));
            ASSERT_EQ(readInto(claim(columns, rows), *record).status, endOfData);
            if (throughACopy) {
                record.reset(vantric_copyCalibration(record.get()));
            }
            EXPECT_EQ(readInto(large, *record).status, tooSmall);
            EXPECT_EQ(pixelsOfRecord(*record), std::uint64_t{columns} * rows);
        }
    }
    const Record record = readPlain(smallPacked());
    EXPECT_NE(readInto(sized(smallPacked(), 8, 3), *record).status, ok);
    EXPECT_EQ(readInto(smallPacked(), *record).status, tooSmall);
}

TEST(SecondRead, SaysHowMuchRoomThereIs) {
    struct Notes final : WalkObserver {
        void block(const BlockSighting& /*block*/) override {}
        void endMarker(std::uint64_t /*offset*/) override {}
        void refused(const Refusal& refusal, std::uint32_t /*blockId*/) override { told = refusal; }
        Refusal told;
    } notes;
    const Record record = readPlain(minimalPacked());
    const Bytes data = smallPacked();
    readPackedInto(*record, 32, newTessalyTable(), data.data(), data.size(), Wanted::everything,
                   &notes);
    EXPECT_EQ(
        std::tuple(notes.told.cause, notes.told.offset, notes.told.expected, notes.told.found),
        std::tuple(Cause::recordTooSmall, 7, 4, 32));
}

// Rays belong to an image size: as many pixels in another shape are others, too.
TEST(SecondRead, DropsTheDirectionsOfAnotherSize) {
    for (const auto& [columns, rows] :
         {std::pair(8U, 4U), {4U, 8U}, {8U, 3U}, {7U, 4U}, {0U, 4U}, {8U, 0U}}) {
        const Record record = read(smallPacked());
        ASSERT_NE(record->directions, nullptr);
        readInto(sized(smallPacked(), columns, rows), *record);
        EXPECT_EQ(record->directions != nullptr, columns == 8 && rows == 4) << columns << rows;
    }
    // Directions of an image without pixels, computed or added, are not those of 2 x 2.
    for (const bool computed : {true, false}) {
        const Record record = readPlain(calibrationOf(2, 2));
        readInto(claim(0, 38), *record);
        EXPECT_EQ(
            computed ? vantric_calcRXPsfAndDirections(record.get(), 0) : addDirections(*record, 0),
            ok);
        ASSERT_NE(record->directions, nullptr);
        EXPECT_EQ(readInto(calibrationOf(2, 2), *record).status, tooSmall);
        readInto(claim(38, 0), *record);
        EXPECT_EQ(record->directions, nullptr);
    }
}

TEST(SecondRead, DropsThePsfOfAnotherProfile) {
    for (const bool straylight : {false, true}) {  // comes with another PSF
        const Record full = read(smallPacked());
        EXPECT_EQ(readInto(straylight ? smallPacked() : minimalPacked(), *full).status, ok);
        EXPECT_EQ(full->psf == nullptr, straylight);
    }
}

// A record of a host's own making has no image before its first packed read.
TEST(SecondRead, FirstPackedReadDropsWhatAHostAdded) {
    for (const bool hasImage : {false, true}) {
        const Record record(allocateCalibration(32));
        const float one = 1.0F;
        if (hasImage) {
            record->imagerArea = {0, 0, 8, 4};
        }
        ASSERT_EQ(addDirections(*record, 32), ok);
        ASSERT_EQ(vantric_addPsf(record.get(), &one, 1), ok);
        EXPECT_EQ(readInto(smallPacked(), *record).status, ok);
        EXPECT_EQ(record->directions != nullptr, hasImage);
        EXPECT_EQ(record->psf, nullptr);
    }
}

TEST(SecondRead, CopiesKeepWorkingWithHostTables) {
    const Bytes data = smallPacked();
    const Record record = read(data);
    ASSERT_EQ(vantric_readCustomFields(data.data(), data.size(), record.get()), ok);
    const Record copy(vantric_copyCalibration(record.get()));
    RXBlockTable* table = vantric_createTessalyTable(copy.get(), 32);
    VantricStream stream = vantric_createStreamFromData(data.data(), data.size());
    EXPECT_EQ(vantric_readRXCalibration(&stream, table).status, ok);
    EXPECT_EQ(copy->customFields[0].data, nullptr);  // those of the earlier read are gone
    EXPECT_EQ(vantric_calcRXPsfAndDirections(copy.get(), 32), ok);
    EXPECT_EQ(vantric_readCustomFields(data.data(), data.size(), copy.get()), ok);
    EXPECT_EQ(std::memcmp(copy->directions, record->directions, 32 * 12), 0);
    EXPECT_EQ(std::memcmp(copy->customFields[1].data, record->customFields[1].data,
                          record->customFields[1].size),
              0);
}
