#include "calibration/directions.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstring>

#include "calibration/calibration.h"

namespace vantric {

namespace {

// 15 rounds: one, then pairs.
constexpr int pairsOfRounds = 7;

// Rays are independent, so a group of pixels is worked on lane by lane in arrays that the compiler
// keeps in vector registers. Every lane does exactly the operations of the plain formula.
constexpr std::size_t lanes = 32;

struct Lens {
    float ifx, ify, cx, cy, k1, k2, k3, p1, p2;
};

struct Group {
    float x[lanes], y[lanes];
};

Lens lensOf(const float* parameters) {
    return {1.0F / parameters[0], 1.0F / parameters[1], parameters[2], parameters[3], parameters[4],
            parameters[5],        parameters[8],        parameters[6], parameters[7]};
}

// Pixels without distortion; lanes behind the last column are worked on and dropped.
Group startOf(const Lens& lens, std::uint32_t column, float y) {
    Group start;
    for (std::size_t i = 0; i < lanes; ++i) {
        // As signed number: that conversion is one vector instruction.
        const auto u = static_cast<std::int32_t>(column + static_cast<std::uint32_t>(i));
        start.x[i] = lens.ifx * (static_cast<float>(u) - lens.cx);
        start.y[i] = y;
    }
    return start;
}

// One round of the fixed-point inversion.
Group undistortRound(const Lens& lens, const Group& start, const Group& ray) {
    const float twoP1 = 2.0F * lens.p1;
    const float twoP2 = 2.0F * lens.p2;
    Group next;
    for (std::size_t i = 0; i < lanes; ++i) {
        const float x = ray.x[i];
        const float y = ray.y[i];
        const float r2 = x * x + y * y;
        const float q = 1.0F / (1.0F + r2 * (lens.k1 + r2 * (lens.k2 + lens.k3 * r2)));
        const float dx = twoP1 * x * y + lens.p2 * (r2 + 2.0F * (x * x));
        const float dy = twoP2 * x * y + lens.p1 * (r2 + 2.0F * (y * y));
        next.x[i] = (start.x[i] - dx) * q;
        next.y[i] = (start.y[i] - dy) * q;
    }
    return next;
}

std::uint32_t bitsOf(float value) {
    std::uint32_t bits;
    std::memcpy(&bits, &value, sizeof bits);
    return bits;
}

bool sameBits(const Group& a, const Group& b) {
    std::uint32_t different = 0;
    for (std::size_t i = 0; i < lanes; ++i) {
        different |= (bitsOf(a.x[i]) ^ bitsOf(b.x[i])) | (bitsOf(a.y[i]) ^ bitsOf(b.y[i]));
    }
    return different == 0;
}

// All 15 rounds, or as many as change anything: a pair of rounds that leads back to the bits it
// started from would only be repeated by the pairs after it. Lanes at rest are such a case, and so
// are those that go on swinging between two neighbouring numbers.
Group undistort(const Lens& lens, const Group& start) {
    Group ray = undistortRound(lens, start, start);
    for (int pair = 0; pair < pairsOfRounds; ++pair) {
        const Group before = ray;
        ray = undistortRound(lens, start, undistortRound(lens, start, before));
        if (sameBits(ray, before)) {
            break;
        }
    }
    return ray;
}

// Unit vectors, interleaved.
void storeDirections(const Group& ray, std::size_t count, float* out) {
    float directions[lanes * floatsPerDirection];
    for (std::size_t i = 0; i < lanes; ++i) {
        const float r2 = ray.x[i] * ray.x[i] + ray.y[i] * ray.y[i];
        const float m = std::sqrt(r2 + 1.0F);
        const float x = ray.x[i] / m;
        const float y = ray.y[i] / m;
        directions[floatsPerDirection * i] = x;
        directions[floatsPerDirection * i + 1] = y;
        directions[floatsPerDirection * i + 2] = std::sqrt(1.0F - (x * x + y * y));
    }
    std::memcpy(out, directions, count * floatsPerDirection * sizeof(float));
}

}  // namespace

void computeDirections(float* directions, const float* lensParameters, std::uint32_t columns,
                       std::uint32_t rows) {
    const Lens lens = lensOf(lensParameters);
    for (std::uint32_t v = 0; v < rows; ++v) {
        const float y0 = lens.ify * (static_cast<float>(v) - lens.cy);
        for (std::uint32_t u = 0; u < columns;) {
            const std::size_t count = std::min<std::size_t>(lanes, columns - u);
            const Group ray = undistort(lens, startOf(lens, u, y0));
            storeDirections(ray, count, directions);
            directions += count * floatsPerDirection;
            u += static_cast<std::uint32_t>(count);
        }
    }
}

}  // namespace vantric

uint32_t vantric_updateDirections(float* directions, uint32_t count, const float* lensParameters,
                                  const VantricImagerArea* imagerArea) {
    const VantricImagerArea& area = *imagerArea;
    // Twice 32 bits times 3 would overflow even 64 bits; the pixels alone cannot.
    const std::uint64_t pixels = vantric::pixelsOf(area);
    if (pixels > count || pixels * vantric::floatsPerDirection != count ||
        area.areaX > area.columns || area.areaY > area.rows) {
        return VANTRIC_ERR_ALREADY_SET;
    }
    if (pixels == 0) {
        return VANTRIC_OK;  // without a look at the lens
    }
    vantric::computeDirections(directions, lensParameters, area.columns, area.rows);
    return VANTRIC_OK;
}
