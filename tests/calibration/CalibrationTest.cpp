#include "calibration/calibration.h"

#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <cstring>
#include <functional>
#include <limits>
#include <numeric>
#include <tuple>

#include "calcut/vantric.h"
#include "fixtures.h"

using namespace fixtures;
using namespace vantric;

namespace {

bool sameFloats(const float* a, const float* b, std::size_t count) {
    return std::memcmp(a, b, count * sizeof(float)) == 0;
}

constexpr auto asSize(std::uint32_t status) {
    return static_cast<std::int32_t>(status);
}

std::string printed(const std::function<void()>& print) {
    testing::internal::CaptureStderr();
    print();
    return testing::internal::GetCapturedStderr();
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

// Sizes that name more than a PSF may have give no room beyond the values.
TEST(Record, APsfOfImpossibleSizeTakesItsValuesAlone) {
    constexpr std::uint32_t side = 8192;  // side x side is the largest PSF
    for (const auto& [width, height] :
         {std::pair(side, side + 1), {0xFFFFFFFEU, 0xFFFFFFFEU}, {0xFFFFFFFFU, 5U}}) {
        const Record record(allocateCalibration(2));
        record->psfWidth = width;
        record->psfHeight = height;
        const std::array<float, 2> values = {1, 2};
        EXPECT_EQ(vantric_addPsf(record.get(), values.data(), 2), ok);
        EXPECT_TRUE(sameFloats(record->psf, values.data(), 2));
        EXPECT_EQ(Record(vantric_copyCalibration(record.get()))->psf, nullptr);
    }
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

TEST(ValidTests, LookAtTheirOwnBitsOnly) {
    EXPECT_EQ(vantric_validUnsigndField(0xFFFFFFFFU), 0);
    EXPECT_EQ(vantric_validUnsigndField(0xFFFFFFFEU), 1);
    EXPECT_EQ(vantric_validUnit8Field(0xFF), 0);
    EXPECT_EQ(vantric_validUnit8Field(0x1FF), 0);
    EXPECT_EQ(vantric_validUnit8Field(-1), 0);
    EXPECT_EQ(vantric_validUnit8Field(0xFE), 1);
    EXPECT_EQ(vantric_validUnit16Field(0x1FFFF), 0);
    EXPECT_EQ(vantric_validUnit16Field(0xFF), 1);
    EXPECT_EQ(vantric_validFloatField(std::numeric_limits<float>::quiet_NaN()), 0);
    EXPECT_EQ(vantric_validFloatField(std::numeric_limits<float>::infinity()), 1);
}

TEST(Fields, BuiltInSizesAndContents) {
    const Record record(allocateCalibration(4));
    VantricCalibration& r = *record;
    for (const std::uint32_t id : {1U, 2U, 4U, 5U}) {
        std::uint8_t untouched = 0x77;
        EXPECT_EQ(vantric_getFieldSize(id, &r), asSize(fieldEmpty));
        EXPECT_EQ(vantric_getField(id, &r, &untouched), fieldEmpty);
        EXPECT_EQ(untouched, 0x77);
    }
    std::strcpy(r.text1, "one");
    std::memset(r.text2, 'x', 64);
    r.idBytes[31] = 1;
    r.idCode1 = 1;
    r.imagerArea = {1, 2, 3, 4};
    r.lensParameters[8] = 8.0F;
    const std::tuple<std::uint32_t, const void*, std::size_t> cases[] = {
        {0, r.lensParameters, 36}, {1, r.text1, 4},    {2, r.text2, 65},
        {3, &r.imagerArea, 16},    {4, r.idBytes, 32}, {5, &r.idCode0, 4}};
    for (const auto& [id, source, size] : cases) {
        ASSERT_EQ(vantric_getFieldSize(id, &r), static_cast<std::int32_t>(size));
        Bytes field(size);
        EXPECT_EQ(vantric_getField(id, &r, field.data()), ok);
        EXPECT_EQ(std::memcmp(field.data(), source, size), 0);
    }
    // The byte of idBytes that is set is the last.
    for (const auto& [used, size] :
         {std::pair(31, asSize(fieldEmpty)), {255, 32}, {0, asSize(fieldEmpty)}}) {
        r.idBytesSize = static_cast<std::uint8_t>(used);
        EXPECT_EQ(vantric_getFieldSize(4, &r), size);
    }
    for (const int count : {2, 0}) {
        r.lensParameterCount = static_cast<std::uint8_t>(count);
        EXPECT_EQ(vantric_getFieldSize(0, &r), 4 * count);
    }
    EXPECT_EQ(vantric_getField(0, &r, nullptr), ok);
}

TEST(Fields, RefuseForeignRecordsAndUnknownIds) {
    const Record record(allocateCalibration(4));
    EXPECT_EQ(vantric_getFieldSize(3, nullptr), asSize(invalidArgument));
    EXPECT_EQ(vantric_getField(3, nullptr, nullptr), invalidArgument);
    record->version = 2;
    EXPECT_EQ(vantric_getFieldSize(3, record.get()), asSize(invalidArgument));
    EXPECT_EQ(vantric_getField(3, record.get(), nullptr), invalidArgument);
    record->version = 1;
    record->customFieldCount = 2;
    record->firstCustomFieldId = 128;
    for (const std::uint32_t id : {6U, 127U, 130U, 255U, 0x80000080U, 0xFFFFFFFFU, 0x7FFFFFFFU}) {
        EXPECT_EQ(vantric_getFieldSize(id, record.get()), asSize(VANTRIC_ERR_UNKNOWN_FIELD)) << id;
        EXPECT_EQ(vantric_getField(id, record.get(), nullptr), VANTRIC_ERR_UNKNOWN_FIELD);
    }
    record->customFieldCount = 0;
    record->firstCustomFieldId = 255;
    EXPECT_EQ(vantric_getFieldSize(255, record.get()), asSize(VANTRIC_ERR_UNKNOWN_FIELD));
}

TEST(Fields, CustomFieldsAreReadOnce) {
    const Bytes packed = smallPacked();
    const calcut::writer::Calibration made = smallCalibration();
    const Record record = readPlain(packed);
    Bytes field(255, 0x77);
    ASSERT_EQ(vantric_getNumCustomFields(record.get()), 2U);
    EXPECT_EQ(vantric_getFieldSize(129, record.get()),
              static_cast<std::int32_t>(made.custom[1].size()));
    EXPECT_EQ(vantric_getField(129, record.get(), field.data()), VANTRIC_ERR_FIELD_NOT_READ);
    EXPECT_EQ(field[0], 0x77);
    EXPECT_EQ(vantric_readCustomFields(packed.data(), packed.size(), nullptr), invalidArgument);
    EXPECT_EQ(vantric_readCustomFields(packed.data(), packed.size(), record.get()), ok);
    const std::uint8_t* data = record->customFields[0].data;
    EXPECT_EQ(vantric_readCustomFields(packed.data(), packed.size(), record.get()),
              invalidArgument);
    EXPECT_EQ(record->customFields[0].data, data);
    EXPECT_EQ(vantric_getField(129, record.get(), field.data()), ok);
    EXPECT_EQ(std::memcmp(field.data(), made.custom[1].data(), made.custom[1].size()), 0);

    // A copy numbers its custom fields from 255: the blocks find no place, the bytes are zero.
    const Record unread = readPlain(packed);
    const Record copy(vantric_copyCalibration(unread.get()));
    EXPECT_EQ(vantric_readCustomFields(packed.data(), packed.size(), copy.get()), ok);
    EXPECT_EQ(vantric_getField(255, copy.get(), field.data()), ok);
    EXPECT_EQ(field[0], 0);
}

// An overlap does not arise with the packed format; another handler could make one.
TEST(Fields, CustomFieldHidesABuiltInOneOfTheSameId) {
    const Record record(allocateCalibration(4));
    record->firstCustomFieldId = 3;
    record->customFieldCount = 1;
    record->customFields[0].size = 2;
    Bytes field(16, 0x77);
    EXPECT_EQ(vantric_getFieldSize(3, record.get()), 16);  // still the built-in size
    EXPECT_EQ(vantric_getField(3, record.get(), field.data()), VANTRIC_ERR_FIELD_NOT_READ);
    record->customFields[0].data = static_cast<std::uint8_t*>(std::malloc(2));
    std::memcpy(record->customFields[0].data, "ab", 2);
    EXPECT_EQ(vantric_getField(3, record.get(), field.data()), ok);
    EXPECT_EQ(field, bytes("ab", Bytes(14)));
}

TEST(Trace, PrintsArraysUpTo32Values) {
    std::vector<std::int32_t> values(40);
    std::iota(values.begin(), values.end(), -1);
    std::string list;
    for (std::int64_t count = -1; count <= 40; ++count) {
        if (count >= 1 && count <= 32) {
            list += std::to_string(count - 2) + ", ";
        }
        const std::string more =
            count > 32 ? "... (" + std::to_string(count - 32) + " more values) " : "";
        EXPECT_EQ(printed([&] { vantric_printfTraceInts("n", values.data(), count); }),
                  "n: [ " + list + more + "]\n");
    }
}

TEST(Trace, PrintsEachTypeMessagesAndBits) {
    const std::uint8_t bytes[] = {0, 255};
    const std::uint32_t words[] = {1, 0xFFFFFFFFU};
    const float floats[] = {0.5F, -1.0F};
    const std::string zeros(31, '0');
    EXPECT_EQ(printed([&] {
                  vantric_printfTraceUint8s("b", bytes, 2);
                  vantric_printfTraceUint32s("w", words, 2);
                  vantric_printfTraceFloats("f", floats, 2);
                  vantric_printfTraceUint8s("none", nullptr, 0);
                  vantric_printfTrace("where", "%d of %s\n", 3, "four");
                  vantric_printfTraceUint32Bits("x", 1);
                  vantric_printfTraceUint32Bits("x", 0x80000000U);
              }),
              "b: [ 0, 255, ]\nw: [ 1, -1, ]\nf: [ 0.500000, -1.000000, ]\nnone: [ ]\n"
              "where: 3 of four\n1" +
                  zeros + zeros + "1");
}
