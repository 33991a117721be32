#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <random>

#include "calcut/vantric_rx.h"
#include "fixtures.h"

using namespace fixtures;
namespace writer = calcut::writer;

namespace {

// Largest error of a table packed with that many bits.
float quantum(const std::vector<float>& values, unsigned bits) {
    if (bits == 0 || values.empty()) {
        return 0.0F;
    }
    const auto [low, high] = std::minmax_element(values.begin(), values.end());
    const float magnitude = std::max(std::fabs(*low), std::fabs(*high));
    const auto steps = static_cast<float>((std::uint64_t{1} << bits) - 1);
    return (*high - *low) / steps * 0.51F + magnitude * 3e-7F;
}

void expectTable(const float* decoded, const std::vector<float>& values, unsigned bits) {
    const float error = quantum(values, bits);
    for (std::size_t i = 0; i < values.size(); ++i) {
        ASSERT_LE(std::fabs(decoded[i] - values[i]), error) << i;
    }
}

template <std::size_t N>
void expectFloats(const float* decoded, const std::array<float, N>& values) {
    for (std::size_t i = 0; i < N; ++i) {
        EXPECT_EQ(decoded[i], values[i]) << i;
    }
}

void expectWiggling(const VantricWigglingTable& table, const writer::Wiggling& wiggling) {
    ASSERT_EQ(table.capacity, wiggling.third.size());
    float header = 0.0F;
    std::memcpy(&header, &table.header, sizeof header);
    EXPECT_EQ(header, wiggling.header);
    for (std::size_t i = 0; i < wiggling.third.size(); ++i) {
        EXPECT_EQ(table.third[i], wiggling.third[i]);
        EXPECT_EQ(table.first[i], wiggling.first[i]);
        EXPECT_EQ(table.second[i], static_cast<std::uint32_t>(wiggling.second[i]));
    }
}

void expectFrequency(const VantricFrequencyRecord& record, const writer::Frequency& frequency,
                     unsigned bits) {
    EXPECT_EQ(record.frequencyId, frequency.id);
    expectTable(record.pixelTable, frequency.pixelTable, bits);
    expectFloats(record.valuesA, frequency.valuesA);
    expectFloats(record.valuesB, frequency.valuesB);
    EXPECT_EQ(std::isnan(record.scalar), !frequency.scalar.has_value());
    if (frequency.scalar) {
        EXPECT_EQ(record.scalar, *frequency.scalar);
    }
    expectWiggling(record.wigglingA, frequency.wigglingA);
    expectWiggling(record.wigglingB, frequency.wigglingB);
}

void expectStraylight(const VantricCalibration& record, const writer::Straylight& straylight) {
    EXPECT_EQ(record.straylightScale, straylight.scale);
    expectFloats(record.straylightRadius, straylight.radius);
    expectFloats(record.straylightValue, straylight.value);
    EXPECT_EQ(record.straylightExponent, straylight.exponent);
    EXPECT_EQ(record.straylightOffset, straylight.offset);
    EXPECT_EQ(record.straylightCentre, straylight.centre);
    EXPECT_EQ(record.psfWidth, straylight.psfWidth);
    EXPECT_EQ(record.psfHeight, straylight.psfHeight);
    EXPECT_EQ(record.straylightPointCount, 13);
}

void expectCustom(const Bytes& packed, VantricCalibration& record,
                  const std::vector<std::vector<std::uint8_t>>& custom) {
    ASSERT_EQ(vantric_getNumCustomFields(&record), custom.size());
    ASSERT_EQ(vantric_readCustomFields(packed.data(), packed.size(), &record), VANTRIC_OK);
    for (std::size_t k = 0; k < custom.size(); ++k) {
        const auto id = static_cast<std::uint32_t>(128 + k);
        ASSERT_EQ(vantric_getFieldSize(id, &record), static_cast<std::int32_t>(custom[k].size()));
        Bytes field(custom[k].size());
        EXPECT_EQ(vantric_getField(id, &record, field.data()), VANTRIC_OK);
        EXPECT_EQ(field, custom[k]);
    }
}

void expectRoundTrip(const writer::Calibration& made, const writer::PackOptions& options) {
    const Bytes packed = writer::packCalibration(made, options);
    std::uint32_t status = 1;
    const Record record = readPlain(packed, &status);
    ASSERT_EQ(status, VANTRIC_OK) << std::hex << status;
    const VantricCalibration& r = *record;
    EXPECT_EQ(r.imagerArea.columns, made.columns);
    EXPECT_EQ(r.imagerArea.rows, made.rows);
    EXPECT_EQ(r.auxFlag, made.auxFlag);
    expectFloats(r.lensParameters, made.lens);
    for (std::size_t i = 0; i < made.mask.size(); ++i) {
        ASSERT_EQ(r.pixelMask[i], static_cast<std::uint8_t>(made.mask[i]));
    }
    expectTable(r.pixelValues, made.pixelValues, options.valueBits);
    const bool dated = made.date && options.omit.count(4) == 0;
    EXPECT_EQ(std::string(r.text0), dated ? " (" + std::to_string(*made.date) + ")" : "");
    EXPECT_EQ(std::string(r.text1), options.omit.count(5) == 0 ? made.text1.value_or("") : "");
    EXPECT_EQ(std::string(r.text2), options.omit.count(6) == 0 ? made.text2.value_or("") : "");
    if (made.idCodes && options.omit.count(8) == 0) {
        EXPECT_EQ(r.idCode0, (*made.idCodes)[0]);
        EXPECT_EQ(r.idCode1, (*made.idCodes)[1]);
    }
    if (made.idBytes && options.omit.count(7) == 0) {
        EXPECT_EQ(std::vector<std::uint8_t>(r.idBytes, r.idBytes + r.idBytesSize), *made.idBytes);
    }
    if (made.straylight && options.omit.count(9) == 0) {
        expectStraylight(r, *made.straylight);
    } else {
        EXPECT_TRUE(std::isnan(r.straylightScale));
    }
    ASSERT_EQ(r.frequencyCount, made.frequencies.size());
    for (std::size_t k = 0; k < made.frequencies.size(); ++k) {
        expectFrequency(r.frequencies[k], made.frequencies[k], options.valueBits);
    }
    expectCustom(packed, *record, made.custom);
}

}  // namespace

TEST(RoundTrip, RandomCalibrationsReadBackEqual) {
    std::mt19937 random(11);
    const auto below = [&](unsigned n) { return static_cast<unsigned>(random() % n); };
    for (int i = 0; i < 120; ++i) {
        writer::CalibrationOptions options;
        options.columns = static_cast<std::uint16_t>(1 + below(40));
        options.rows = static_cast<std::uint16_t>(4 + below(20));
        options.frequencies = 1 + below(8);
        options.straylight = below(2) == 0;
        options.custom = below(6);
        options.straylightExponent = below(2) == 0 ? 2.0F : 2.1F;
        options.seed = random();
        writer::PackOptions pack;
        pack.maskBits = 1 + below(31);
        pack.valueBits = below(25);
        pack.form = below(2) == 0 ? writer::CountForm::Short : writer::CountForm::Long;
        for (std::uint8_t optional = 4; optional <= 9; ++optional) {
            if (below(4) == 0) {
                pack.omit.insert(optional);
            }
        }
        SCOPED_TRACE(i);
        expectRoundTrip(writer::makeCalibration(options), pack);
    }
}

TEST(RoundTrip, SameOptionsGiveTheSameBytesAndOthersDoNot) {
    writer::CalibrationOptions options;
    const Bytes first = writer::packCalibration(writer::makeCalibration(options));
    EXPECT_EQ(first, writer::packCalibration(writer::makeCalibration(options)));
    options.seed = 2;
    EXPECT_NE(first, writer::packCalibration(writer::makeCalibration(options)));
}

// What people get without options is a module that the whole road accepts.
TEST(RoundTrip, DefaultModuleHasEverything) {
    std::uint32_t status = 1;
    const Bytes packed = writer::packCalibration(writer::makeCalibration({}));
    const Record record = read(packed, &status);
    ASSERT_EQ(status, VANTRIC_OK);
    EXPECT_EQ(record->imagerArea.columns, 224U);
    EXPECT_EQ(record->imagerArea.rows, 172U);
    EXPECT_EQ(record->pixelMask[0], 0);
    EXPECT_EQ(record->pixelMask[223], 0);
    EXPECT_NE(record->pixelMask[86 * 224 + 112], 0);
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

TEST(RoundTrip, FloatsComeBackBitForBit) {
    std::mt19937 random(13);
    const auto check = [](float value) {
        const auto word = static_cast<std::int32_t>(writer::encodeRXFloat(value));
        EXPECT_EQ(vantric_decodeRXFloat(word), value) << value;
    };
    for (int i = 0; i < 100000; ++i) {
        const auto bits = static_cast<std::uint32_t>(random());
        float value = 0.0F;
        std::memcpy(&value, &bits, sizeof value);
        if (std::isnormal(value)) {
            check(value);
        }
    }
    for (int exponent = -126; exponent < 128; ++exponent) {
        for (const float mantissa : {1.0F, 1.5F, 0x1.FFFFFEp0F, -1.0F, -0x1.FFFFFEp0F}) {
            check(std::ldexp(mantissa, exponent));
        }
    }
    check(0.0F);
    EXPECT_EQ(writer::encodeRXFloat(1.0F), 0x40000000U);
    EXPECT_EQ(writer::encodeRXFloat(-1.0F), 0xC0000000U);
}

TEST(RoundTrip, BothImagesAroundAPayload) {
    const Bytes packed = minimalPacked();
    const Bytes v7 = writer::makeV7Image(packed);
    const Bytes reference = v7Image(packed);
    ASSERT_EQ(v7.size(), reference.size());
    EXPECT_TRUE(std::equal(v7.begin(), v7.begin() + 16, reference.begin()));
    EXPECT_TRUE(std::equal(v7.begin() + 67, v7.end(), reference.begin() + 67));
    for (const std::uint32_t address : {0x2068U, 0x2069U, 0x2800U, 0x12345U}) {
        writer::KorvelineOptions options;
        options.address = address;
        const Bytes image = writer::makeKorvelineImage(packed, options);
        const Bytes expected = korvelineImage(packed, image[41], address);
        EXPECT_TRUE(image[41] != 22 && image[41] != 28);
        EXPECT_TRUE(std::equal(image.begin() + 52, image.begin() + 62, expected.begin() + 52));
        EXPECT_TRUE(std::equal(image.begin(), image.begin() + 9, expected.begin()));
        ASSERT_EQ(image.size(), expected.size());
        EXPECT_TRUE(std::equal(packed.begin(), packed.end(), image.begin() + (address - 0x2000)));
    }
    EXPECT_THROW(writer::makeKorvelineImage(packed, {0x2067, {}}), std::invalid_argument);
    EXPECT_THROW(writer::makeKorvelineImage(Bytes(65536)), std::length_error);
    EXPECT_THROW(writer::makeKorvelineImage(Bytes(65535 - 127), {0x2068, Bytes(5)}),
                 std::length_error);
}
