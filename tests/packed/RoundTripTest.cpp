#include <gtest/gtest.h>

#include <stdexcept>

#include "calcut/vantric_rx.h"
#include "fixtures.h"

using namespace fixtures;
namespace writer = calcut::writer;

// What people get without options is a module that the whole road accepts.
TEST(RoundTrip, DefaultModuleHasEverything) {
    std::uint32_t status = 1;
    const Bytes packed = writer::packCalibration(writer::makeCalibration({}));
    const Record record = read(packed, &status);
    ASSERT_EQ(status, ok);
    EXPECT_EQ(record->imagerArea.columns, 224U);
    EXPECT_EQ(record->imagerArea.rows, 172U);
    const std::uint8_t* mask = record->pixelMask;
    EXPECT_TRUE(mask[0] == 0 && mask[223] == 0 && mask[86 * 224 + 112] != 0);
    ASSERT_NE(record->psf, nullptr);
    for (int i = 2; i < 112; ++i) {
        EXPECT_LE(record->psf[i], record->psf[i - 1]);
    }
    ASSERT_NE(record->directions, nullptr);
    for (std::size_t i = 0; i < 38528; ++i) {
        const float* d = record->directions + 3 * i;
        EXPECT_NEAR(d[0] * d[0] + d[1] * d[1] + d[2] * d[2], 1.0F, 1e-5F);
    }
}

// The fuzz targets read images back; these are refused.
TEST(RoundTrip, KorvelineImagesHaveLimits) {
    const Bytes packed = minimalPacked();
    EXPECT_THROW(writer::makeKorvelineImage(packed, {0x2067, {}}), std::invalid_argument);
    EXPECT_THROW(writer::makeKorvelineImage(Bytes(65536)), std::length_error);
    EXPECT_THROW(writer::makeKorvelineImage(Bytes(65535 - 127), {0x2068, Bytes(5)}),
                 std::length_error);
}
