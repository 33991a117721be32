#include "calibration/calibration.h"

#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <cstring>

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
    EXPECT_EQ(r.version, 1);
    EXPECT_EQ(r.calibrationType, 2);
    for (const char* text : {r.text0, r.text1, r.text2}) {
        EXPECT_EQ(std::string(text, 65), std::string(65, '\0'));
    }
    EXPECT_EQ(Bytes(r.idBytes, r.idBytes + 32), Bytes(32));
    EXPECT_EQ(r.idBytesSize, 32);
    EXPECT_EQ(r.directions, nullptr);
    EXPECT_EQ(r.lensParameterCount, 9);
    EXPECT_EQ(r.idCode0, 0xFFFF);
    EXPECT_EQ(r.idCode1, 0xFFFF);
    const float* straylight = &r.straylightScale;
    for (int i = 0; i < 32; ++i) {
        std::uint32_t bits = 0;
        std::memcpy(&bits, straylight + i, sizeof bits);
        EXPECT_EQ(bits, 0x7FC00000U) << i;
    }
    EXPECT_EQ(r.psfWidth, 0xFFFFFFFFU);
    EXPECT_EQ(r.psfHeight, 0xFFFFFFFFU);
    EXPECT_EQ(r.straylightPointCount, 0);
    EXPECT_EQ(r.psf, nullptr);
    EXPECT_EQ(r.auxFlag, 1);
    EXPECT_EQ(r.frequencyCount, 8);
    for (int k = 0; k < 8; ++k) {
        const VantricFrequencyRecord& f = r.frequencies[k];
        EXPECT_EQ(f.countA, 4);
        EXPECT_EQ(f.countB, 4);
        EXPECT_TRUE(std::isnan(f.scalar));
        EXPECT_EQ(f.wigglingA.capacity, 5);
        EXPECT_EQ(f.wigglingB.capacity, 5);
        f.pixelTable[4] = f.valuesA[3] = f.valuesB[3] = 1.0F;  // a sanitizer checks the room
        f.wigglingA.first[4] = f.wigglingB.third[4] = 1.0F;
        f.wigglingA.second[4] = f.wigglingB.second[4] = 1;
    }
    EXPECT_EQ(r.customFieldCount, 5);
    for (int k = 0; k < 5; ++k) {
        EXPECT_EQ(r.customFields[k].data, nullptr);
        EXPECT_EQ(r.customFields[k].size, 0);
    }
    EXPECT_EQ(r.firstCustomFieldId, 255);
    EXPECT_EQ(r.customFieldReserved, 0);
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

TEST(Record, CopyIsDeepAndComplete) {
    const Bytes packed = smallPacked();
    Record source = read(packed);
    ASSERT_NE(source, nullptr);
    ASSERT_EQ(vantric_readCustomFields(packed.data(), packed.size(), source.get()), VANTRIC_OK);
    source->firstCustomFieldId = 7;
    source->customFieldReserved = 9;
    source->auxFlag = 3;
    source->lensParameterCount = 5;
    std::memcpy(source->text1, "a\0b", 4);  // all 65 bytes count, not only the text
    const Record copy(vantric_copyCalibration(source.get()));
    const VantricCalibration& a = *source;
    const VantricCalibration& b = *copy;
    EXPECT_EQ(b.firstCustomFieldId, 255);
    EXPECT_EQ(b.customFieldReserved, 9);
    EXPECT_EQ(b.lensParameterCount, 9);
    EXPECT_EQ(b.version, a.version);
    EXPECT_EQ(b.calibrationType, a.calibrationType);
    EXPECT_EQ(std::memcmp(&b.imagerArea, &a.imagerArea, sizeof a.imagerArea), 0);
    EXPECT_EQ(std::memcmp(b.text0, a.text0, 65), 0);
    EXPECT_EQ(std::memcmp(b.text1, a.text1, 65), 0);
    EXPECT_EQ(std::memcmp(b.text2, a.text2, 65), 0);
    EXPECT_EQ(b.idBytesSize, a.idBytesSize);
    EXPECT_EQ(std::memcmp(b.idBytes, a.idBytes, 32), 0);
    EXPECT_TRUE(sameFloats(b.pixelValues, a.pixelValues, 32));
    EXPECT_EQ(std::memcmp(b.pixelMask, a.pixelMask, 32), 0);
    EXPECT_TRUE(sameFloats(b.lensParameters, a.lensParameters, 9));
    EXPECT_EQ(b.auxFlag, 3);
    EXPECT_EQ(b.idCode0, a.idCode0);
    EXPECT_EQ(b.idCode1, a.idCode1);
    EXPECT_TRUE(sameFloats(&b.straylightScale, &a.straylightScale, 32));
    EXPECT_EQ(b.psfWidth, 8U);
    EXPECT_EQ(b.psfHeight, 4U);
    EXPECT_EQ(b.straylightPointCount, 14);
    EXPECT_TRUE(sameFloats(b.psf, a.psf, 32));
    EXPECT_NE(b.psf, a.psf);
    EXPECT_TRUE(sameFloats(b.directions, a.directions, 96));
    ASSERT_EQ(b.frequencyCount, 2);
    for (int k = 0; k < 2; ++k) {
        const VantricFrequencyRecord& x = a.frequencies[k];
        const VantricFrequencyRecord& y = b.frequencies[k];
        EXPECT_EQ(y.frequencyId, x.frequencyId);
        EXPECT_EQ(std::memcmp(&y.scalar, &x.scalar, sizeof x.scalar), 0);
        EXPECT_TRUE(sameFloats(y.pixelTable, x.pixelTable, 32));
        EXPECT_TRUE(sameFloats(y.valuesA, x.valuesA, 4) && sameFloats(y.valuesB, x.valuesB, 4));
        for (const auto& [from, to] :
             {std::pair(x.wigglingA, y.wigglingA), {x.wigglingB, y.wigglingB}}) {
            EXPECT_EQ(to.capacity, from.capacity);
            EXPECT_EQ(to.header, from.header);
            EXPECT_TRUE(sameFloats(to.first, from.first, from.capacity));
            EXPECT_TRUE(sameFloats(to.third, from.third, from.capacity));
            EXPECT_EQ(std::memcmp(to.second, from.second, from.capacity * 4U), 0);
        }
    }
    ASSERT_EQ(b.customFieldCount, 2);
    for (int k = 0; k < 2; ++k) {
        ASSERT_EQ(b.customFields[k].size, a.customFields[k].size);
        EXPECT_NE(b.customFields[k].data, a.customFields[k].data);
        EXPECT_EQ(
            std::memcmp(b.customFields[k].data, a.customFields[k].data, a.customFields[k].size), 0);
    }
    source.reset();  // nothing of the copy goes with it
    EXPECT_EQ(b.text1[0], 'a');
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
