#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <random>
#include <tuple>

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

template <class Decoded, class Values>
void expectEqual(const Decoded* decoded, const Values& values) {
    EXPECT_TRUE(std::equal(values.begin(), values.end(), decoded));
}

void expectWiggling(const VantricWigglingTable& table, const writer::Wiggling& wiggling) {
    ASSERT_EQ(table.capacity, wiggling.third.size());
    EXPECT_EQ(std::bit_cast<float>(table.header), wiggling.header);
    expectEqual(table.third, wiggling.third);
    expectEqual(table.first, wiggling.first);
    expectEqual(table.second,
                std::vector<std::uint32_t>(wiggling.second.begin(), wiggling.second.end()));
}

void expectFrequency(const VantricFrequencyRecord& record, const writer::Frequency& frequency,
                     unsigned bits) {
    EXPECT_EQ(record.frequencyId, frequency.id);
    expectTable(record.pixelTable, frequency.pixelTable, bits);
    expectEqual(record.valuesA, frequency.valuesA);
    expectEqual(record.valuesB, frequency.valuesB);
    EXPECT_TRUE(frequency.scalar ? record.scalar == *frequency.scalar : std::isnan(record.scalar));
    expectWiggling(record.wigglingA, frequency.wigglingA);
    expectWiggling(record.wigglingB, frequency.wigglingB);
}

void expectStraylight(const VantricCalibration& r, const writer::Straylight& made) {
    expectEqual(r.straylightRadius, made.radius);
    expectEqual(r.straylightValue, made.value);
    EXPECT_EQ(std::tie(r.straylightScale, r.straylightExponent, r.straylightOffset,
                       r.straylightCentre, r.psfWidth, r.psfHeight),
              std::tie(made.scale, made.exponent, made.offset, made.centre, made.psfWidth,
                       made.psfHeight));
    EXPECT_EQ(r.straylightPointCount, 13);
}

void expectCustom(const Bytes& packed, VantricCalibration& record,
                  const std::vector<std::vector<std::uint8_t>>& custom) {
    ASSERT_EQ(vantric_getNumCustomFields(&record), custom.size());
    ASSERT_EQ(vantric_readCustomFields(packed.data(), packed.size(), &record), ok);
    for (std::size_t k = 0; k < custom.size(); ++k) {
        const auto id = static_cast<std::uint32_t>(128 + k);
        ASSERT_EQ(vantric_getFieldSize(id, &record), static_cast<std::int32_t>(custom[k].size()));
        Bytes field(custom[k].size());
        EXPECT_EQ(vantric_getField(id, &record, field.data()), ok);
        EXPECT_EQ(field, custom[k]);
    }
}

void expectRoundTrip(const writer::Calibration& made, const writer::PackOptions& options) {
    const Bytes packed = writer::packCalibration(made, options);
    std::uint32_t status = 1;
    const Record record = readPlain(packed, &status);
    ASSERT_EQ(status, ok) << std::hex << status;
    const VantricCalibration& r = *record;
    EXPECT_EQ(std::tuple(r.imagerArea.columns, r.imagerArea.rows, r.auxFlag),
              std::tuple(made.columns, made.rows, made.auxFlag));
    expectEqual(r.lensParameters, made.lens);
    for (std::size_t i = 0; i < made.mask.size(); ++i) {
        ASSERT_EQ(r.pixelMask[i], static_cast<std::uint8_t>(made.mask[i]));
    }
    expectTable(r.pixelValues, made.pixelValues, options.valueBits);
    const bool dated = made.date && options.omit.count(4) == 0;
    EXPECT_EQ(std::string(r.text0), dated ? " (" + std::to_string(*made.date) + ")" : "");
    EXPECT_EQ(std::string(r.text1), options.omit.count(5) == 0 ? made.text1.value_or("") : "");
    EXPECT_EQ(std::string(r.text2), options.omit.count(6) == 0 ? made.text2.value_or("") : "");
    if (made.idCodes && options.omit.count(8) == 0) {
        expectEqual(&r.idCode0, *made.idCodes);
    }
    if (made.idBytes && options.omit.count(7) == 0) {
        EXPECT_EQ(Bytes(r.idBytes, r.idBytes + r.idBytesSize), *made.idBytes);
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

TEST(RoundTrip, FloatsComeBackBitForBit) {
    std::vector<float> values = {0.0F};
    for (int exponent = -126; exponent < 128; ++exponent) {
        for (const float mantissa : {1.0F, 1.5F, 0x1.234568p0F, 0x1.FFFFFEp0F}) {
            values.push_back(std::ldexp(mantissa, exponent));
            values.push_back(-values.back());
        }
    }
    for (const float value : values) {
        EXPECT_EQ(vantric_decodeRXFloat(std::bit_cast<std::int32_t>(writer::encodeRXFloat(value))),
                  value);
    }
    EXPECT_EQ(writer::encodeRXFloat(1.0F), 0x40000000U);
}

TEST(RoundTrip, BothImagesAroundAPayload) {
    const Bytes packed = minimalPacked();
    // The first bytes of the fields that readers look at; the rest of a header is free.
    const auto same = [](const Bytes& a, const Bytes& b, std::size_t begin, std::size_t end) {
        return a.size() == b.size() && std::equal(&a[begin], &a[end - 1] + 1, &b[begin]);
    };
    const Bytes v7 = writer::makeV7Image(packed);
    EXPECT_TRUE(same(v7, v7Image(packed), 0, 16) && same(v7, v7Image(packed), 67, v7.size()));
    for (const std::uint32_t address : {0x2068U, 0x2069U, 0x2800U, 0x12345U}) {
        const Bytes image = writer::makeKorvelineImage(packed, {address, {}});
        const Bytes expected = korvelineImage(packed, image[41], address);
        EXPECT_TRUE(image[41] != 22 && image[41] != 28);
        EXPECT_TRUE(same(image, expected, 0, 9) && same(image, expected, 52, 62));
        EXPECT_TRUE(same(image, expected, address - 0x2000, image.size()));
    }
    EXPECT_THROW(writer::makeKorvelineImage(packed, {0x2067, {}}), std::invalid_argument);
    EXPECT_THROW(writer::makeKorvelineImage(Bytes(65536)), std::length_error);
    EXPECT_THROW(writer::makeKorvelineImage(Bytes(65535 - 127), {0x2068, Bytes(5)}),
                 std::length_error);
}
