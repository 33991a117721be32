// The kernels that compute against their plain forms, bit for bit.
#include <gtest/gtest.h>

#include <cstdlib>
#include <numeric>
#include <tuple>

#include "Bits.h"
#include "calibration/directions.h"
#include "calibration/processor.h"
#include "fixtures.h"
#include "plain/plain.h"

using namespace fixtures;
namespace plain = calcut::plain;

namespace kernels {

namespace {

struct Size {
    std::uint32_t columns, rows;
};

// ------------------------------------------------------------------------------- directions --

constexpr std::size_t guard = 8;  // floats behind the directions

Floats fastDirections(const Floats& lens, const Size& size) {
    const VantricImagerArea area = {0, 0, size.columns, size.rows};
    const std::uint32_t count = size.columns * size.rows * 3;
    Floats result(count + guard, untouched);
    EXPECT_EQ(vantric_updateDirections(result.data(), count, lens.data(), &area), ok);
    return result;
}

#ifdef __x86_64__
constexpr auto* avx2Directions = vantric::computeDirectionsAvx2;
#else
constexpr auto* avx2Directions = vantric::computeDirectionsPortable;
#endif

// fx, fy, cx, cy, k1, k2, p1, p2, k3
std::vector<Floats> lenses() {
    std::vector<Floats> result = {
        {160, 161, 15.5F, 9.25F, 0, 0, 0, 0, 0},
        {160, 161, 15.5F, 9.25F, -0.2F, 0.05F, 4e-4F, -3e-4F, -0.004F},
        {20, 20, 16, 8, -0.9F, 0.6F, 0.05F, 0.07F, -0.3F},  // some rays never come to rest
        {1, 1, 0, 0, 1e10F, -1e20F, 1e10F, 1e10F, 1e30F},   // infinities and NaN on the way
        {1e-30F, 1e-30F, 3, 3, 1, 1, 1, 1, 1},              // overflow at once
        {0, 0, 4, 4, -0.2F, 0.05F, 0, 0, 0},                // 1 / 0
        {-50, 70, 1e6F, -1e6F, 0.1F, 0, 0, 0, 0},
        {inf, 160, 16, 8, 0.1F, 0.1F, 0.1F, 0.1F, 0.1F},
        {160, 160, 16, 8, inf, -inf, 0, 0, 1},
        {160, 160, nan, 8, 0.1F, 0, 0, 0, 0},
        {160, 160, 16, 8, 0, 0, nan, 0, 0},
        {3e38F, 3e38F, 16, 8, 1e-45F, 1e-40F, 1e-40F, 1e-45F, 1e-42F}};  // subnormal numbers
    Random random;
    for (int i = 0; i < 40; ++i) {
        const float strength = std::exp2(random.between(-6.0F, 3.0F));
        Floats lens = {random.between(5, 400), random.between(5, 400), random.between(-5, 60),
                       random.between(-5, 40)};
        for (int k = 0; k < 5; ++k) {
            lens.push_back(random.between(-strength, strength) * (k == 2 || k == 3 ? 0.1F : 1));
        }
        result.push_back(lens);
    }
    return result;
}

TEST(KernelEquality, DirectionsOfEveryLensAndEveryShapeAroundTheTileSize) {
    std::vector<std::pair<Floats, Size>> cases;
    for (const Floats& lens : lenses()) {
        for (const Size size : {Size{1, 1}, Size{33, 18}, Size{1, 9}, Size{50, 1}}) {
            cases.emplace_back(lens, size);
        }
    }
    const Floats usual = lenses()[1];
    for (std::uint32_t i = 0; i < 35 * 9; ++i) {
        cases.emplace_back(usual, Size{1 + i % 35, 1 + i / 35});
    }
    for (const Size size : {Size{1, 300}, Size{300, 1}, Size{224, 172}, Size{1001, 3}}) {
        cases.emplace_back(usual, size);
    }
    auto* const byAvx2 = vantric::hasAvx2() ? avx2Directions : vantric::computeDirectionsPortable;
    for (const auto& [lens, size] : cases) {
        const Floats fast = fastDirections(lens, size);
        for (auto* compute :
             {plain::updateDirections, vantric::computeDirectionsPortable, byAvx2}) {
            Floats other(fast.size(), untouched);
            compute(other.data(), lens.data(), size.columns, size.rows);
            EXPECT_EQ(bitsOf(fast.data(), fast.size()), bitsOf(other.data(), other.size()))
                << size.columns << " x " << size.rows << ", lens " << testing::PrintToString(lens);
        }
    }
}

// ------------------------------------------------------------------- interpolation and PSF --

struct Profile {
    Floats radius, value;
};

std::vector<Profile> profiles() {
    std::vector<Profile> all = {{{3}, {2}},
                                {{2, 9}, {1, 1}},                        // flat
                                {{2.5F, 4, 8, 16}, {0.5F, 2, 1.5F, 7}},  // an extremum inside
                                {{4, 3, 9}, {1, 2, 3}},                  // not ascending
                                {{4, 4, 9}, {1, 2, 3}},                  // no width
                                {{2, nan, 9}, {1, 2, 3}},
                                {{2, 2, 2, 5, 3, 8, 8}, {3, 1, 2, 0, 4, 9, 5}},
                                {{-1, 2, 5}, {1, 0, 2}},  // the origin is not the first in order
                                {{1, 2, 3, 4, 5}, {-1, 4, 0, 8, 3}},  // distances at the nodes
                                {{1, 2, inf}, {1, 2, -3}}};
    Random random;
    for (int i = 0; i < 4; ++i) {
        Profile profile;
        for (int k = 0; k < VANTRIC_STRAYLIGHT_POINTS; ++k) {
            const float last = k == 0 ? 0 : profile.radius.back();
            profile.radius.push_back(last + random.between(0.1F, 4));
            profile.value.push_back(random.between(-1, 6));
        }
        all.push_back(profile);
    }
    return all;
}

// The PSF that such a record gets from that function.
template <class Calculate>
Words psfOf(const Profile& profile, const Size& size, float exponent, float offset,
            Calculate calculate) {
    VantricCalibration record = {};
    record.straylightScale = offset == 0.0F ? -0.75F : 0.75F;  // a negative zero stays one
    std::copy(profile.radius.begin(), profile.radius.end(), record.straylightRadius);
    std::copy(profile.value.begin(), profile.value.end(), record.straylightValue);
    record.straylightExponent = exponent;
    record.straylightOffset = offset;
    record.straylightCentre = 0.97F;
    record.straylightPointCount = static_cast<std::uint8_t>(profile.radius.size());
    record.psfWidth = size.columns;
    record.psfHeight = size.rows;
    calculate(record);
    const std::size_t elements = std::size_t{size.columns} * size.rows;
    const Words bits = bitsOf(record.psf, std::max<std::size_t>(elements, 1));
    std::free(record.psf);
    return bits;
}

void fastPsf(VantricCalibration& record) {
    EXPECT_EQ(vantric_allocateAndCalculatePsf(&record), ok);
}

TEST(KernelEquality, PsfOfEverySizeProfileAndExponent) {
    const std::vector<Size> sizes = {
        {0, 0}, {0, 5}, {5, 0},  {1, 1},  {1, 2},   {2, 1},  {2, 2},  {3, 3},   {4, 4},
        {5, 8}, {8, 5}, {1, 17}, {17, 1}, {33, 20}, {7, 12}, {12, 7}, {31, 31}, {0xFFFFFFFFU, 0}};
    for (const Profile& profile : profiles()) {
        for (const Size& size : sizes) {
            for (const float exponent : {2.0F, 2.1F, 0.5F, -1.5F, 0.0F, inf, nan}) {
                for (const float offset : {0.0F, 1e-3F, -0.0F, nan}) {
                    ASSERT_EQ(
                        psfOf(profile, size, exponent, offset, fastPsf),
                        psfOf(profile, size, exponent, offset, plain::allocateAndCalculatePsf))
                        << size.columns << " x " << size.rows << ", exponent " << exponent;
                }
            }
        }
    }
}

TEST(KernelEquality, InterpolationInsideAtAndOutsideTheNodes) {
    Random random;
    for (const auto& [radius, value] : profiles()) {
        const auto n = static_cast<std::uint32_t>(radius.size());
        if (n < 2) {
            continue;
        }
        VantricPoly* fast = vantric_createPolyHandle(radius.data(), value.data(), n);
        VantricPoly* expected = plain::createPoly(radius.data(), value.data(), n);
        EXPECT_EQ(bitsOf(fast->slope, n), bitsOf(expected->slope, n));
        Floats at = radius;
        at.insert(at.end(), {-1, 0, 1e6F, inf, -inf, nan});
        std::generate_n(std::back_inserter(at), 500, [&] { return random.between(0, 60); });
        for (const float t : at) {
            EXPECT_EQ(bitsOf(vantric_cinterpol_def(fast, t, 7)),
                      bitsOf(plain::interpolate(*expected, t, 7)))
                << t;
        }
        vantric_freePoly(fast);
        vantric_freePoly(expected);
    }
}

TEST(KernelEquality, DirectionsAreThoseOfEveryOtherMachine) {
    Hash hash;
    for (const Floats& lens : lenses()) {
        const Floats directions = fastDirections(lens, {45, 21});
        hash.add(bitsOf(directions.data(), directions.size() - guard));
    }
    EXPECT_EQ(hash.value(), 0x947E9C3F2DF1C625ULL);
}

}  // namespace

}  // namespace kernels
