#include "calibration/calibration.h"

#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <cstring>
#include <tuple>

#include "fixtures.h"

using namespace fixtures;
using namespace vantric;

namespace {

bool sameFloats(const float* a, const float* b, std::size_t count) {
    return std::memcmp(a, b, count * sizeof(float)) == 0;
}

}  // namespace

TEST(Record, StartsWithItsDefaults) {
    const Record record(allocateCalibration(5));
    const VantricCalibration& r = *record;
    EXPECT_EQ(std::tuple(r.version, r.calibrationType, r.idBytesSize, r.lensParameterCount,
                         r.idCode0, r.idCode1, r.psfWidth, r.psfHeight, r.straylightPointCount),
              std::tuple(1, 2, 32, 9, 0xFFFF, 0xFFFF, 0xFFFFFFFFU, 0xFFFFFFFFU, 0));
    EXPECT_EQ(std::tuple(r.auxFlag, r.frequencyCount, r.customFieldCount, r.firstCustomFieldId,
                         r.customFieldReserved, r.directions, r.psf),
              std::tuple(1, 8, 5, 255, 0, nullptr, nullptr));
    for (const char* text : {r.text0, r.text1, r.text2}) {
        EXPECT_EQ(std::string(text, 65), std::string(65, '\0'));
    }
    EXPECT_EQ(Bytes(r.idBytes, r.idBytes + 32), Bytes(32));
    const std::vector<std::uint32_t> unset(32, 0x7FC00000U);
    EXPECT_EQ(std::memcmp(&r.straylightScale, unset.data(), 128), 0);
    for (int k = 0; k < 8; ++k) {
        const VantricFrequencyRecord& f = r.frequencies[k];
        EXPECT_EQ(std::tuple(f.countA, f.countB, f.wigglingA.capacity, f.wigglingB.capacity),
                  std::tuple(4, 4, 5, 5));
        EXPECT_TRUE(std::isnan(f.scalar));
        f.pixelTable[4] = f.valuesA[3] = f.valuesB[3] = 1.0F;  // a sanitizer checks the room
        f.wigglingA.first[4] = f.wigglingB.third[4] = 1.0F;
        f.wigglingA.second[4] = f.wigglingB.second[4] = 1;
    }
    for (int k = 0; k < 5; ++k) {
        EXPECT_EQ(r.customFields[k].data, nullptr);
        EXPECT_EQ(r.customFields[k].size, 0);
    }
    r.pixelMask[4] = 1;
    r.pixelValues[4] = 1.0F;
}

TEST(Record, SmallQueries) {
    vantric_freeCalibration(nullptr);
    EXPECT_EQ(vantric_getCalibrationTypeFromHandle(nullptr), 0U);
    EXPECT_EQ(vantric_copyCalibration(nullptr), nullptr);
    const Record record(allocateCalibration(1));
    EXPECT_EQ(vantric_getCalibrationTypeFromHandle(record.get()), 2U);
    EXPECT_EQ(vantric_getStatusFromCode(0x80000009U), 0x80000009U);
    EXPECT_EQ(vantric_getStatusFromCode(7), 7U);
    EXPECT_EQ(vantric_getCalibrationSize(), VANTRIC_ERR_NOT_SUPPORTED);
    EXPECT_EQ(vantric_getTemporaryMemorySize(), VANTRIC_ERR_NOT_SUPPORTED);
}

TEST(Record, TakesAPsfAndDirectionsOnce) {
    const Record record(allocateCalibration(2));
    const std::array<float, 6> first = {1, 2, 3, 4, 5, 6};
    const std::array<float, 6> second = {};
    EXPECT_EQ(vantric_addPsf(record.get(), first.data(), 6), VANTRIC_OK);
    EXPECT_EQ(vantric_addPsf(record.get(), second.data(), 6), VANTRIC_ERR_ALREADY_SET);
    EXPECT_TRUE(sameFloats(record->psf, first.data(), 6));
    EXPECT_EQ(record->psfWidth, 0xFFFFFFFFU);
    EXPECT_EQ(vantric_addDirections(record.get(), first.data(), 2), VANTRIC_OK);
    EXPECT_EQ(vantric_addDirections(record.get(), second.data(), 2), VANTRIC_ERR_ALREADY_SET);
    EXPECT_TRUE(sameFloats(record->directions, first.data(), 6));
    const Record copy(vantric_copyCalibration(record.get()));
    EXPECT_EQ(copy->psf, nullptr);  // of unknown size
    EXPECT_NE(copy->directions, nullptr);
}

// A host may add less than the sizes in the record say; a copy must stay inside all the same.
TEST(Record, ShortPsfAndDirectionsAreFilledUp) {
    const Record record = readPlain(smallPacked());
    const float one = 1.0F;
    const std::array<float, 3> up = {0, 0, 1};
    EXPECT_EQ(vantric_addPsf(record.get(), &one, 1), VANTRIC_OK);
    EXPECT_EQ(vantric_addDirections(record.get(), up.data(), 1), VANTRIC_OK);
    const Record copy(vantric_copyCalibration(record.get()));
    EXPECT_EQ(copy->psf[0], 1.0F);
    EXPECT_EQ(copy->psf[8 * 4 - 1], 0.0F);
    EXPECT_EQ(copy->directions[2], 1.0F);
    EXPECT_EQ(copy->directions[3 * 32 - 1], 0.0F);
}

// The fuzz targets compare the content of copies.
TEST(Record, CopyResetsSomeCountsAndKeepsWholeTexts) {
    const Record source = read(smallPacked());
    source->firstCustomFieldId = 7;
    source->customFieldReserved = 9;
    source->auxFlag = 3;
    source->lensParameterCount = 5;
    std::memcpy(source->text1, "a\0b", 4);  // all 65 bytes count, not only the text
    source->text2[64] = 'z';
    const Record copy(vantric_copyCalibration(source.get()));
    const VantricCalibration& c = *copy;
    EXPECT_EQ(std::tuple(c.firstCustomFieldId, c.customFieldReserved, c.lensParameterCount,
                         c.auxFlag, c.psfWidth, c.psfHeight, c.straylightPointCount),
              std::tuple(255, 9, 9, 3, 8, 4, 14));
    EXPECT_EQ(std::memcmp(c.text1, source->text1, 65), 0);
    EXPECT_EQ(c.text2[64], 'z');
    EXPECT_EQ(std::memcmp(&c.straylightScale, &source->straylightScale, 128), 0);
}

TEST(Record, CopyLeavesOutWhatTheSourceDoesNotHave) {
    const Record source = readPlain(smallPacked());
    source->frequencies[0].wigglingA.capacity = 200;  // never more than there is room for
    source->customFieldCount = 200;
    const Record copy(vantric_copyCalibration(source.get()));
    EXPECT_EQ(copy->directions, nullptr);
    EXPECT_EQ(copy->psf, nullptr);
    EXPECT_EQ(copy->customFields[0].data, nullptr);
    EXPECT_EQ(copy->customFields[0].size, source->customFields[0].size);
    EXPECT_EQ(copy->frequencies[0].wigglingA.capacity, 200);
    EXPECT_EQ(copy->customFieldCount, 200);
}
