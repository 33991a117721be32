#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <numeric>
#include <tuple>

#include "calibration/calibration.h"
#include "fixtures.h"

using namespace fixtures;
using namespace vantric;

namespace {

using Poly = vantric::PolyOwner;

Poly poly(const std::vector<float>& x, const std::vector<float>& y) {
    return Poly(vantric_createPolyHandle(x.data(), y.data(), static_cast<std::uint32_t>(x.size())));
}

std::vector<float> slopes(const std::vector<float>& x, const std::vector<float>& y) {
    const Poly handle = poly(x, y);
    return {handle->slope, handle->slope + x.size()};
}

// A record with a profile of three points over a PSF of that size.
Record straylight(std::uint32_t width, std::uint32_t height) {
    Record record(allocateCalibration(1));
    record->straylightScale = 2.0F;
    record->straylightPointCount = 3;
    std::iota(record->straylightRadius, record->straylightRadius + 3, 1.0F);
    std::iota(record->straylightValue, record->straylightValue + 3, 1.0F);
    record->straylightExponent = 2.0F;
    record->straylightOffset = 0.0F;
    record->straylightCentre = 9.0F;
    record->psfWidth = width;
    record->psfHeight = height;
    return record;
}

}  // namespace

TEST(Interpolation, SlopesPreserveShape) {
    using F = std::vector<float>;
    EXPECT_EQ(slopes({0, 1, 2}, {0, 1, 4})[1], 1.5F);       // harmonic mean of 1 and 3
    EXPECT_EQ(slopes({0, 1, 2}, {0, 2, 0})[1], 0.0F);       // extremum
    EXPECT_EQ(slopes({0, 1, 2}, {0, 0, 5})[1], 0.0F);       // flat side
    EXPECT_EQ(slopes({0, 1, 3}, {0, 1, 3}), (F{1, 1, 1}));  // a line keeps its slope
    EXPECT_EQ(slopes({0, 1, 2}, {0, 1, 4}),
              (F{0, 1.5F, 4}));                         // ends: (3 * 1 - 3) / 2, (3 * 3 - 1) / 2
    EXPECT_EQ(slopes({0, 1, 2}, {0, 1, 5})[0], 0.0F);   // an end that would turn back: 0
    EXPECT_EQ(slopes({0, 1, 2}, {0, 1, -9})[0], 3.0F);  // an end too steep: three secants
    EXPECT_EQ(slopes({0, 1, 2}, {-9, 1, 0})[2], -3.0F);
    EXPECT_EQ(slopes({0, 1, 2}, {0, 0, 4})[0], 0.0F);  // d below zero, secant zero
    // Weighted: h 1 and 2, secants 1 and 3: w1 = 5, w2 = 4, 9 / (5 + 4 / 3).
    EXPECT_EQ(slopes({0, 1, 3}, {0, 1, 7})[1], 9.0F / (5.0F / 1.0F + 4.0F / 3.0F));
    EXPECT_EQ(slopes({1, 3}, {1, 7}), (F{3, 3}));
    EXPECT_EQ(slopes({1}, {7}), (F{0}));
}

TEST(Interpolation, FallsBackOutside) {
    const Poly handle = poly({0, 1, 2, 4}, {0, 1, 4, 20});
    EXPECT_EQ(vantric_cinterpol(handle.get(), 4), 20);
    for (const float t : {-0.001F, 4.001F, NAN, INFINITY}) {
        EXPECT_TRUE(std::isnan(vantric_cinterpol(handle.get(), t)));
        EXPECT_EQ(vantric_cinterpol_def(handle.get(), t, 7.0F), 7.0F);
    }
    EXPECT_NEAR(vantric_cinterpol(poly({0, 2}, {0, 4}).get(), 0.5F), 1.0F, 1e-6F);
    // A jump between two nodes of the same place: the lower segment holds the node.
    EXPECT_EQ(vantric_cinterpol(poly({0, 1, 1.5F, 2}, {5, 6, 8, 9}).get(), 1.0F), 6.0F);
}

TEST(Interpolation, HandlesWithoutASegmentFallBack) {
    vantric_freePoly(nullptr);
    const float one = 1.0F;
    for (const std::uint32_t n : {0U, 1U, 0x80000000U, 0xFFFFFFFFU}) {
        const Poly handle(vantric_createPolyHandle(&one, &one, n));
        EXPECT_EQ(handle->count, n);
        EXPECT_EQ(handle->slope == nullptr, n != 1);
        EXPECT_TRUE(std::isnan(vantric_cinterpol(handle.get(), 1.0F)));
        EXPECT_EQ(vantric_cinterpol_def(handle.get(), 1.0F, -2.0F), -2.0F);
    }
}

TEST(Directions, ChecksTheSizesBeforeItWrites) {
    std::array<float, 9> lens = {1, 1, 0, 0, 0, 0, 0, 0, 0};
    using Case = std::tuple<VantricImagerArea, std::uint32_t, std::uint32_t>;
    for (const auto& [area, count, status] :
         {Case{{0, 0, 2, 1}, 6, ok}, Case{{0, 0, 2, 1}, 5, alreadySet},
          Case{{0, 0, 2, 1}, 7, alreadySet}, Case{{2, 1, 2, 1}, 6, ok},
          Case{{3, 0, 2, 1}, 6, alreadySet}, Case{{0, 2, 2, 1}, 6, alreadySet},
          Case{{0, 0, 0, 9}, 0, ok}, Case{{0, 0, 9, 0}, 0, ok},
          Case{{0, 0, 65536, 65536}, 0, alreadySet},
          Case{{0, 0, 0xFFFFFFFF, 0xFFFFFFFF}, 3, alreadySet}}) {
        std::array<float, 7> directions;
        directions.fill(-7.0F);
        EXPECT_EQ(vantric_updateDirections(directions.data(), count, lens.data(), &area), status);
        EXPECT_EQ(directions[0] != -7.0F, status == ok && count != 0);
        EXPECT_EQ(directions[6], -7.0F);
    }
}

TEST(Directions, FollowTheLens) {
    // Distorting the computed ray must lead back to the pixel.
    const std::array<float, 9> lens = {200, 210, 112, 86, -0.2F, 0.05F, 1e-3F, -5e-4F, 1e-3F};
    const VantricImagerArea sensor = {0, 0, 224, 172};
    std::vector<float> rays(224 * 172 * 3);
    ASSERT_EQ(vantric_updateDirections(rays.data(), 224 * 172 * 3, lens.data(), &sensor), ok);
    for (int v = 0; v < 172; v += 19) {
        for (int u = 0; u < 224; u += 17) {
            const float* ray = rays.data() + 3 * (v * 224 + u);
            const double x = ray[0] / ray[2];
            const double y = ray[1] / ray[2];
            const double r2 = x * x + y * y;
            const double radial = 1 + r2 * (-0.2 + r2 * (0.05 + 1e-3 * r2));
            const double xd = x * radial + 2 * 1e-3 * x * y - 5e-4 * (r2 + 2 * x * x);
            const double yd = y * radial - 2 * 5e-4 * x * y + 1e-3 * (r2 + 2 * y * y);
            EXPECT_NEAR(xd * 200 + 112, u, 0.01);
            EXPECT_NEAR(yd * 210 + 86, v, 0.01);
        }
    }
}

TEST(Psf, RefusesBeforeItTouchesTheRecord) {
    EXPECT_EQ(vantric_allocateAndCalculatePsf(nullptr), invalidArgument);
    const std::pair<std::function<void(VantricCalibration&)>, std::uint32_t> cases[] = {
        {[](auto& r) { r.straylightScale = NAN; }, invalidArgument},
        {[](auto& r) { r.straylightPointCount = 0; }, invalidArgument},
        {[](auto& r) { r.straylightPointCount = 14; }, tooSmall},
        {[](auto& r) { r.psfWidth = 1U << 26; }, tooSmall},
        {[](auto& r) { r.psfWidth = r.psfHeight = 0xFFFFFFFFU; }, tooSmall},
        {[](auto& r) { r.psfWidth = r.psfHeight = 0x10000U; }, tooSmall}};
    for (const auto& [change, status] : cases) {
        const Record record = straylight(4, 4);
        change(*record);
        const std::uint8_t points = record->straylightPointCount;
        EXPECT_EQ(vantric_allocateAndCalculatePsf(record.get()), status);
        EXPECT_EQ(
            std::tuple(record->psf, record->straylightPointCount, record->straylightRadius[0]),
            std::tuple(nullptr, points, 1.0F));
    }
}

TEST(Psf, WrapsAroundTheEdges) {
    const Record record = straylight(4, 4);
    ASSERT_EQ(vantric_allocateAndCalculatePsf(record.get()), ok);
    EXPECT_EQ(std::tuple(record->straylightPointCount, record->straylightRadius[0],
                         record->straylightValue[0], record->straylightRadius[3]),
              std::tuple(4, 0, 0, 3));
    const float distances[] = {0, 1, 2, 1};
    for (int y = 0; y < 4; ++y) {
        for (int x = 0; x < 4; ++x) {
            const float r = std::sqrt(distances[x] * distances[x] + distances[y] * distances[y]);
            const float expected =
                x + y == 0 ? 9.0F : 2.0F * std::exp(-r);  // the profile is a line
            EXPECT_NEAR(record->psf[y * 4 + x], expected, 1e-5F);
        }
    }
    EXPECT_EQ(vantric_allocateAndCalculatePsf(record.get()), alreadySet);
    EXPECT_EQ(record->straylightPointCount, 4);
}
