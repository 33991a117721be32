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
    EXPECT_EQ(std::tuple(b.firstCustomFieldId, b.customFieldReserved, b.lensParameterCount,
                         b.auxFlag, b.psfWidth, b.psfHeight, b.straylightPointCount),
              std::tuple(255, 9, 9, 3, 8, 4, 14));
    EXPECT_EQ(std::tie(b.version, b.calibrationType, b.idBytesSize, b.idCode0, b.idCode1),
              std::tie(a.version, a.calibrationType, a.idBytesSize, a.idCode0, a.idCode1));
    struct Range {
        const void *original, *copied;
        std::size_t size;
    };
    std::vector<Range> ranges = {{a.text0, b.text0, 65},
                                 {a.text1, b.text1, 65},
                                 {a.text2, b.text2, 65},
                                 {a.idBytes, b.idBytes, 32},
                                 {a.lensParameters, b.lensParameters, 36},
                                 {a.pixelMask, b.pixelMask, 32},
                                 {a.pixelValues, b.pixelValues, 128},
                                 {a.psf, b.psf, 128},
                                 {a.directions, b.directions, 384}};
    ASSERT_EQ(std::tuple(b.frequencyCount, b.customFieldCount), std::tuple(2, 2));
    for (int k = 0; k < 2; ++k) {
        const VantricFrequencyRecord& x = a.frequencies[k];
        const VantricFrequencyRecord& y = b.frequencies[k];
        EXPECT_EQ(y.frequencyId, x.frequencyId);
        EXPECT_EQ(std::memcmp(&y.scalar, &x.scalar, sizeof x.scalar), 0);
        ranges.insert(ranges.end(), {{x.pixelTable, y.pixelTable, 128},
                                     {x.valuesA, y.valuesA, 16},
                                     {x.valuesB, y.valuesB, 16}});
        for (const auto& [from, to] :
             {std::pair(x.wigglingA, y.wigglingA), {x.wigglingB, y.wigglingB}}) {
            EXPECT_EQ(std::pair(to.capacity, to.header), std::pair(from.capacity, from.header));
            const std::size_t size = from.capacity * std::size_t{4};
            ranges.insert(ranges.end(), {{from.first, to.first, size},
                                         {from.second, to.second, size},
                                         {from.third, to.third, size}});
        }
        ASSERT_EQ(b.customFields[k].size, a.customFields[k].size);
        ranges.push_back({a.customFields[k].data, b.customFields[k].data, a.customFields[k].size});
    }
    for (const auto& [original, copied, size] : ranges) {
        EXPECT_NE(original, copied);
        EXPECT_EQ(std::memcmp(original, copied, size), 0) << size;
    }
    EXPECT_EQ(std::memcmp(&b.imagerArea, &a.imagerArea, sizeof a.imagerArea), 0);
    EXPECT_EQ(std::memcmp(&b.straylightScale, &a.straylightScale, 128), 0);
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
