#include <gtest/gtest.h>

#include <cstring>
#include <limits>
#include <tuple>

#include "calibration/calibration.h"
#include "fixtures.h"

using namespace fixtures;
using namespace vantric;

namespace {

constexpr auto asSize(std::uint32_t status) {
    return static_cast<std::int32_t>(status);
}

}  // namespace

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
