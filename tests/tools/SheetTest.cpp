// Numbers, colours and words of the pictures, without drawing them.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <numbers>
#include <numeric>
#include <tuple>

#include "fixtures.h"
#include "tools/plot/Numbers.h"
#include "tools/plot/Scales.h"

namespace {

using namespace calcut;

// -------------------------------------------------------------------------------------- colours --

using Triple = std::array<double, 3>;
using Matrix = std::array<Triple, 3>;

struct Eye {
    const char* name;
    Matrix seen;  ///< linear RGB as it is seen
};

constexpr Triple luminance = {0.2126, 0.7152, 0.0722};  // ITU-R BT.709, what grey print keeps

/// Dichromats: G. M. Machado, M. M. Oliveira, L. A. F. Fernandes, "A physiologically-based model
/// for simulation of color vision deficiency", IEEE TVCG 15(6), 2009, severity 1.
constexpr Eye eyes[] = {
    {"normal", {{{1, 0, 0}, {0, 1, 0}, {0, 0, 1}}}},
    {"protanopia",
     {{{0.1523, 1.0526, -0.2049}, {0.1145, 0.7863, 0.0992}, {-0.0039, -0.0481, 1.052}}}},
    {"deuteranopia",
     {{{0.3673, 0.8606, -0.228}, {0.2801, 0.6725, 0.0474}, {-0.0118, 0.0429, 0.9689}}}},
    {"tritanopia",
     {{{1.2555, -0.0767, -0.1788}, {-0.0784, 0.9308, 0.1476}, {0.0047, 0.6914, 0.3039}}}},
    {"grey print", {luminance, luminance, luminance}}};

Triple times(const Matrix& matrix, const Triple& vector) {
    const auto row = [&](const Triple& r) {
        return r[0] * vector[0] + r[1] * vector[1] + r[2] * vector[2];
    };
    return {row(matrix[0]), row(matrix[1]), row(matrix[2])};
}

/// CIELAB, D65, of an sRGB colour as an eye sees it.
Triple lab(plot::Rgb colour, const Eye& eye) {
    const auto linear = [](std::uint8_t value) {
        const double part = value / 255.0;
        return part <= 0.04045 ? part / 12.92 : std::pow((part + 0.055) / 1.055, 2.4);
    };
    Triple rgb = times(eye.seen, {linear(colour.r), linear(colour.g), linear(colour.b)});
    std::transform(rgb.begin(), rgb.end(), rgb.begin(),
                   [](double part) { return std::clamp(part, 0.0, 1.0); });
    constexpr Matrix toXyz = {
        {{0.4124, 0.3576, 0.1805}, {0.2126, 0.7152, 0.0722}, {0.0193, 0.1192, 0.9505}}};
    const Triple xyz = times(toXyz, rgb);
    const Triple white = times(toXyz, {1, 1, 1});
    const auto f = [](double t) {
        return t > 216.0 / 24389.0 ? std::cbrt(t) : (24389.0 / 27.0 * t + 16.0) / 116.0;
    };
    const double y = f(xyz[1] / white[1]);
    return {116 * y - 16, 500 * (f(xyz[0] / white[0]) - y), 200 * (y - f(xyz[2] / white[2]))};
}

/// Of two colours in that space, whose units are about equally plain to see (CIE 1976).
double distance(const Triple& one, const Triple& two) {
    return std::hypot(one[0] - two[0], one[1] - two[1], one[2] - two[2]);
}

constexpr int shades = 256;

plot::Rgb shade(plot::ColourMap map, int i) {
    return plot::mapColour(map, i / (shades - 1.0));
}

TEST(SheetColours, MarksAreToldApartByEveryone) {
    constexpr double plain = 15.0;  // a good six times what is just noticed
    for (const Eye& eye : eyes) {
        const Triple masked = lab(plot::maskedColour, eye);
        const Triple notFinite = lab(plot::notFiniteColour, eye);
        EXPECT_GE(distance(masked, notFinite), 6 * plain) << eye.name;
        for (const plot::ColourMap map :
             {plot::ColourMap::Sequential, plot::ColourMap::Diverging}) {
            for (int i = 0; i < shades; ++i) {
                const Triple seen = lab(shade(map, i), eye);
                EXPECT_GE(distance(seen, masked), plain) << eye.name << " " << i;
                EXPECT_GE(distance(seen, notFinite), plain) << eye.name << " " << i;
            }
        }
    }
}

TEST(SheetColours, MapsAreEvenAndReadableByEveryone) {
    for (const Eye& eye : eyes) {
        for (int i = 16; i < shades; ++i) {
            // Dark to light, whoever looks at it.
            EXPECT_GT(lab(shade(plot::ColourMap::Sequential, i), eye)[0],
                      lab(shade(plot::ColourMap::Sequential, i - 16), eye)[0])
                << eye.name << " " << i;
        }
        for (int i = 0; i < shades / 2 - 16; ++i) {
            // Size: lighter towards the middle. Sign: not in grey print.
            const Triple minus = lab(shade(plot::ColourMap::Diverging, i), eye);
            const Triple plus = lab(shade(plot::ColourMap::Diverging, shades - 1 - i), eye);
            EXPECT_LT(minus[0], lab(shade(plot::ColourMap::Diverging, i + 16), eye)[0]) << eye.name;
            if (eye.name != eyes[4].name && i < shades / 2 - 32) {
                EXPECT_GE(distance(minus, plus), 20) << eye.name << " " << i;
            }
        }
    }
    for (const plot::ColourMap map : {plot::ColourMap::Sequential, plot::ColourMap::Diverging}) {
        double least = 100;
        double most = 0;
        for (int i = 16; i < shades; i += 16) {
            const double step =
                distance(lab(shade(map, i), eyes[0]), lab(shade(map, i - 16), eyes[0]));
            least = std::min(least, step);
            most = std::max(most, step);
        }
        EXPECT_LT(most, 2.5 * least);
        EXPECT_EQ(plot::mapColour(map, -1), plot::mapColour(map, 0));
        EXPECT_EQ(plot::mapColour(map, 2), plot::mapColour(map, 1));
    }
}

// ----------------------------------------------------------------------------------- statistics --

constexpr float nan = std::numeric_limits<float>::quiet_NaN();
constexpr float infinity = std::numeric_limits<float>::infinity();

TEST(SheetStatistics, LeavesOutWhatIsMaskedOrNotFinite) {
    const std::vector<float> values{2, 4, nan, 4, 4, infinity, 5, 5, 7, 9, 1e30F};
    std::vector<std::uint8_t> mask(values.size(), 1);
    mask[10] = 0;
    const plot::Statistics some = plot::statisticsOf({values, mask});
    EXPECT_EQ(std::tuple(some.count, some.masked), std::tuple(8U, 1U));
    EXPECT_EQ(some.notFinite, (std::vector<std::size_t>{2, 5}));
    EXPECT_EQ(std::tuple(some.min, some.mean, some.max), std::tuple(2.0, 5.0, 9.0));
    EXPECT_NEAR(some.deviation, 2.13809, 1e-5);
    EXPECT_EQ(plot::statisticsText(some), "min 2   mean 5   deviation 2.138   max 9");
    EXPECT_EQ(plot::statisticsOf({std::span(values).first(1), {}}).deviation, 0.0);
    mask.assign(values.size(), 0);
    EXPECT_EQ(plot::statisticsText(plot::statisticsOf({values, mask})),
              "no value: every pixel is masked");
    EXPECT_EQ(plot::statisticsText(plot::statisticsOf({std::span(values).subspan(2, 1), {}})),
              "no value is finite");
}

TEST(SheetStatistics, FewWildValuesDoNotMoveTheColours) {
    for (const std::size_t count : {100U, 999U, 10'000U, 38'528U}) {
        std::vector<float> values(count);
        for (std::size_t i = 0; i < count; ++i) {
            values[i * 7919 % count] = static_cast<float>(i) / static_cast<float>(count);
        }
        const std::size_t wild = count / 1001;  // on each side
        for (std::size_t i = 0; i < wild; ++i) {
            values[2 * i] = 1e6F;
            values[2 * i + 1] = -1e6F;
        }
        const plot::Statistics statistics = plot::statisticsOf({values, {}});
        const plot::Scale scale = plot::robustScale(statistics);
        EXPECT_TRUE(scale.low >= 0.0 && scale.low <= 0.003) << scale.low;
        EXPECT_TRUE(scale.high >= 0.987 && scale.high <= 1.0) << scale.high;
        // No arrow without a value outside.
        EXPECT_EQ((statistics.min < scale.low), (wild > 0)) << count;
        EXPECT_EQ((statistics.max > scale.high), (wild > 0)) << count;
        std::vector<std::size_t> first(2 * wild);
        std::iota(first.begin(), first.end(), 0U);
        EXPECT_EQ(plot::outliersOf({values, {}}, scale), first);
    }
    // A constant table, and one without values, have a scale too.
    const std::vector<float> same(5000, 0.25F);
    const plot::Scale constant = plot::robustScale(plot::statisticsOf({same, {}}));
    EXPECT_NEAR(constant.fraction(0.25), 0.5, 1e-9);
    EXPECT_LT(constant.low, constant.high);
    const plot::Scale none = plot::robustScale(plot::statisticsOf({{}, {}}));
    EXPECT_LT(none.low, none.high);
}

TEST(SheetStatistics, StepsOfCoarseTablesAreNamed) {
    using Case = std::pair<RXBlockHeader, std::string>;
    for (const auto& [stored, text] :
         {Case{{3, RX_KIND_FLOAT, 1, 0, 0, 0}, "stored as floats"},
          Case{{3, RX_KIND_PACKED_FLOAT, 1, 12, 0.001F, 0}, "stored in 12 bits, step 0.001"},
          Case{{3, RX_KIND_PACKED_FLOAT, 1, 4, -0.0625F, 0},
               "stored in 4 bits, step 0.0625; bands are these steps, no contours"}}) {
        EXPECT_EQ(plot::storageText(stored, 1.0), text);
    }
}

TEST(SheetStatistics, TicksAreRoundAndApart) {
    for (const double low : {-1e9, -3.0, 0.0, 1e-7, 0.1234, 5e5}) {
        for (const double width : {1e-6, 0.003, 1.0, 17.0, 4e4, 9e8}) {
            const plot::Scale scale = plot::scaleAround(low, low + width);
            const std::vector<plot::Tick> ticks = plot::ticksOf(scale, 5);
            ASSERT_TRUE(ticks.size() >= 2 && ticks.size() <= 7) << low << " " << width;
            for (std::size_t i = 0; i < ticks.size(); ++i) {
                EXPECT_NEAR(scale.fraction(ticks[i].value), 0.5, 0.5 + 1e-5);
                EXPECT_TRUE(i == 0 || ticks[i].label != ticks[i - 1].label) << ticks[i].label;
            }
        }
    }
}

// --------------------------------------------------------------------------------------- shapes --

TEST(SheetShapes, EveryShapeFitsAndIsSeen) {
    constexpr double width = 237;
    constexpr double height = 213;
    using Shape = std::pair<std::uint32_t, std::uint32_t>;
    for (const auto& [columns, rows] : {Shape{224, 172},
                                        {1, 1},
                                        {8, 4},
                                        {1, 2000},
                                        {2000, 1},
                                        {2000, 4},
                                        {640, 480},
                                        {12, 1},
                                        {13, 1},
                                        {1, 65535},
                                        {65535, 3},
                                        {65535, 65535},
                                        {300, 20}}) {
        const plot::Strips strips = plot::stripsFor(columns, rows, width, height);
        EXPECT_LE(strips.width, width + 1e-9) << columns << " x " << rows;
        EXPECT_LE(strips.height, height + 1e-9) << columns << " x " << rows;
        EXPECT_EQ(strips.count > 1, plot::needsStrips(columns, rows)) << columns << " x " << rows;
        EXPECT_GE(std::uint64_t{strips.count} * strips.length, std::max(columns, rows));
        if (strips.count == 1) {
            EXPECT_NEAR(strips.width * rows, strips.height * columns, 1e-6 * strips.width * rows);
        } else {
            EXPECT_LT((strips.count - 1) * strips.length, std::max(columns, rows));
            EXPECT_GE(strips.pitch, strips.unit * std::min(columns, rows));
        }
    }
}

// ----------------------------------------------------------------------------------------- rays --

TEST(SheetRays, SayWhatTheyAre) {
    constexpr std::uint32_t columns = 24;
    constexpr std::uint32_t rows = 16;
    struct Case {
        float fx, k1;
        std::size_t damaged;  ///< rays made NaN
        std::string text;     ///< how the line begins
    };
    for (const Case& one :
         {Case{20, 0, 0, "no distortion: every ray is that of a pinhole"},
          Case{20, -0.1F, 0, "arrows, "},
          Case{0, 0, 0, "no ray is finite: look at the lens parameters"},
          Case{20, 0, 3, "3 of 384 rays are not finite; no distortion: every other "},
          Case{20, -0.1F, 3, "3 of 384 rays are not finite; arrows, "}}) {
        std::array<float, 9> lens{one.fx, 20, 11.5F, 7.5F, one.k1, 0, 0, 0, 0};
        std::vector<float> directions(std::size_t{columns} * rows * 3);
        VantricCalibration record{};
        record.imagerArea = {0, 0, columns, rows};
        record.lensParameters = lens.data();
        record.directions = directions.data();
        ASSERT_EQ(vantric_updateDirections(record.directions, columns * rows * 3, lens.data(),
                                           &record.imagerArea),
                  fixtures::ok);
        std::fill_n(directions.begin() + 30, 3 * one.damaged, nan);
        const plot::RayField field = plot::rayFieldOf(record);
        EXPECT_EQ(plot::distortionText(field, true).substr(0, one.text.size()), one.text);
        EXPECT_EQ(field.rays.notFinite.size(), one.fx == 0 ? columns * rows : one.damaged);
        ASSERT_EQ(field.angles.size(), columns * rows);
        if (one.fx > 0) {
            EXPECT_NEAR(field.angles[8 * columns + 11],
                        std::atan(std::hypot(0.5, 0.5) / 20) * 180 / std::numbers::pi, 0.01);
            EXPECT_EQ(field.shifts.max > 0.1, one.k1 != 0);
        }
    }
}

}  // namespace
