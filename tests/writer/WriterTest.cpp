#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <stdexcept>
#include <tuple>

#include "fixtures.h"

using namespace fixtures;
namespace writer = calcut::writer;

// What people get without options is a module that the whole road accepts.
TEST(Writer, DefaultModuleHasEverything) {
    std::uint32_t status = 1;
    const Record record = read(writer::packCalibration(writer::makeCalibration({})), &status);
    ASSERT_EQ(status, ok);
    EXPECT_EQ(std::tuple(record->imagerArea.columns, record->imagerArea.rows),
              std::tuple(224, 172));
    const std::uint8_t* mask = record->pixelMask;
    EXPECT_TRUE(mask[0] == 0 && mask[223] == 0 && mask[86 * 224 + 112] != 0);
    ASSERT_NE(record->psf, nullptr);
    EXPECT_TRUE(std::is_sorted(record->psf + 1, record->psf + 112, std::greater<>()));
    for (const float* d = record->directions; d < record->directions + 3 * 38528; d += 3) {
        EXPECT_NEAR(d[0] * d[0] + d[1] * d[1] + d[2] * d[2], 1.0F, 1e-5F);
    }
}

// The fuzz targets read images back; these are refused.
TEST(Writer, KorvelineImagesHaveLimits) {
    EXPECT_THROW(writer::makeKorvelineImage(Bytes(9), {0x2067, {}}), std::invalid_argument);
    EXPECT_THROW(writer::makeKorvelineImage(Bytes(65536)), std::length_error);
    EXPECT_THROW(writer::makeKorvelineImage(Bytes(65535 - 127), {0x2068, Bytes(5)}),
                 std::length_error);
}
