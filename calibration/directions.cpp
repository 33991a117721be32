#include "calibration/directions.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstring>

#include "calibration/calibration.h"

namespace vantric {

namespace {

constexpr int rounds = 15;
constexpr std::size_t floatsPerDirection = 3;

// Rays are independent, so a group of pixels is worked on lane by lane in arrays that the compiler
// keeps in vector registers. Every lane does exactly the operations of the plain formula.
constexpr std::size_t lanes = 16;

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

std::uint32_t bitsOf(float value) {
    std::uint32_t bits;
    std::memcpy(&bits, &value, sizeof bits);
    return bits;
}

// One round of the fixed-point inversion. Returns the bits that it changed.
std::uint32_t undistortRound(const Lens& lens, const Group& start, Group& ray) {
    const float twoP1 = 2.0F * lens.p1;
    const float twoP2 = 2.0F * lens.p2;
    std::uint32_t changed = 0;
    for (std::size_t i = 0; i < lanes; ++i) {
        const float x = ray.x[i];
        const float y = ray.y[i];
        const float r2 = x * x + y * y;
        const float q = 1.0F / (1.0F + r2 * (lens.k1 + r2 * (lens.k2 + lens.k3 * r2)));
        const float dx = twoP1 * x * y + lens.p2 * (r2 + 2.0F * (x * x));
        const float dy = twoP2 * x * y + lens.p1 * (r2 + 2.0F * (y * y));
        const float nextX = (start.x[i] - dx) * q;
        const float nextY = (start.y[i] - dy) * q;
        changed |= (bitsOf(nextX) ^ bitsOf(x)) | (bitsOf(nextY) ^ bitsOf(y));
        ray.x[i] = nextX;
        ray.y[i] = nextY;
    }
    return changed;
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
            Group start;
            for (std::size_t i = 0; i < lanes; ++i) {
                const auto column = static_cast<float>(u + static_cast<std::uint32_t>(i));
                start.x[i] = lens.ifx * (column - lens.cx);
                start.y[i] = y0;
            }
            Group ray = start;
            // A round that changes no bit would only be repeated by those after it.
            for (int round = 0; round < rounds; ++round) {
                if (undistortRound(lens, start, ray) == 0) {
                    break;
                }
            }
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
    vantric::computeDirections(directions, lensParameters, area.columns, area.rows);
    return VANTRIC_OK;
}
