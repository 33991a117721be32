#pragma once

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "calibration/calibration.h"

// The directions, to be compiled once for every instruction set, each time in the namespace that
// CALCUT_INSTRUCTION_SET names. Nothing here may have a copy that the linker picks from any of
// these objects: templates and inline functions of others are left alone.

namespace vantric::CALCUT_INSTRUCTION_SET {

constexpr int rounds = 15;

// Hardly a ray rests before this many rounds are done, and looking for the rest is not free.
constexpr int unwatchedRounds = 5;

// Rays are independent, so a tile of pixels is worked on lane by lane in arrays that the compiler
// turns into vector code. Every lane does exactly the operations of the plain formula. Rays near
// each other need about the same number of rounds, hence tiles and not rows; this size gives the
// processor enough independent work to hide the latency of a round.

constexpr std::size_t tileColumns = 16;
constexpr std::size_t tileRows = 3;
constexpr std::size_t lanes = tileColumns * tileRows;

struct Lens {
    float ifx, ify, cx, cy, k1, k2, k3, p1, p2;
};

// One record, so that one index reaches all of it.
struct Tile {
    float startX[lanes], startY[lanes];  // without distortion
    float x[lanes], y[lanes];            // the rays so far
    float shiftX[lanes], shiftY[lanes];  // start less the tangential part
    float divisor[lanes];                // the radial part
};

static Lens lensOf(const float* parameters) {
    return {1.0F / parameters[0], 1.0F / parameters[1], parameters[2], parameters[3], parameters[4],
            parameters[5],        parameters[8],        parameters[6], parameters[7]};
}

// A pixel coordinate; fewer than 2^31, and a signed conversion is one vector instruction.
static float coordinate(std::uint32_t first, std::size_t step) {
    return static_cast<float>(static_cast<std::int32_t>(first + static_cast<std::uint32_t>(step)));
}

// Lanes outside the image are worked on and dropped.
static void startTile(const Lens& lens, std::uint32_t column, std::uint32_t row, Tile& tile) {
    for (std::size_t i = 0; i < lanes; ++i) {
        tile.startX[i] = lens.ifx * (coordinate(column, i % tileColumns) - lens.cx);
        tile.startY[i] = lens.ify * (coordinate(row, i / tileColumns) - lens.cy);
        tile.x[i] = tile.startX[i];
        tile.y[i] = tile.startY[i];
    }
}

static std::uint32_t bitsOf(float value) {
    std::uint32_t bits;
    std::memcpy(&bits, &value, sizeof bits);
    return bits;
}

// a + 2 b. Twice b is exact, and where it would overflow so does the sum, so a fused operation
// gives the same.
static float addTwice(float a, float b) {
#ifdef __FMA__
    return __builtin_fmaf(2.0F, b, a);
#else
    return a + 2.0F * b;
#endif
}

// One round of the fixed-point inversion. Returns the bits that it changed. The division stands in
// a loop of its own: shorter chains of operations leave the processor more of them to overlap.
static inline std::uint32_t undistortRound(const Lens& lens, Tile& tile) {
    const float twoP1 = 2.0F * lens.p1;
    const float twoP2 = 2.0F * lens.p2;
    for (std::size_t i = 0; i < lanes; ++i) {
        const float x = tile.x[i];
        const float y = tile.y[i];
        const float x2 = x * x;
        const float y2 = y * y;
        const float r2 = x2 + y2;
        const float dx = twoP1 * x * y + lens.p2 * addTwice(r2, x2);
        const float dy = twoP2 * x * y + lens.p1 * addTwice(r2, y2);
        tile.shiftX[i] = tile.startX[i] - dx;
        tile.shiftY[i] = tile.startY[i] - dy;
        // Last, since the longest chain of operations keeps fewer others waiting there.
        tile.divisor[i] = 1.0F + r2 * (lens.k1 + r2 * (lens.k2 + lens.k3 * r2));
    }
    std::uint32_t changed = 0;
    for (std::size_t i = 0; i < lanes; ++i) {
        const float q = 1.0F / tile.divisor[i];
        const float x = tile.shiftX[i] * q;
        const float y = tile.shiftY[i] * q;
        changed |= (bitsOf(x) ^ bitsOf(tile.x[i])) | (bitsOf(y) ^ bitsOf(tile.y[i]));
        tile.x[i] = x;
        tile.y[i] = y;
    }
    return changed;
}

// All rounds, or fewer: one that changes no bit would only be repeated by those after it.
static void undistort(const Lens& lens, Tile& tile) {
    for (int round = 0; round < unwatchedRounds; ++round) {
        undistortRound(lens, tile);
    }
    for (int round = unwatchedRounds; round < rounds; ++round) {
        if (undistortRound(lens, tile) == 0) {
            break;
        }
    }
}

#ifdef __SSE2__
// Four directions at a time into three registers; compilers come up with more shuffles.
static void storeTileRow(const float* x, const float* y, const float* z, float* out) {
    using Four = float __attribute__((vector_size(16)));
    constexpr std::size_t width = sizeof(Four) / sizeof(float);
    for (std::size_t i = 0; i < tileColumns; i += width) {
        Four xs;
        Four ys;
        Four zs;
        std::memcpy(&xs, x + i, sizeof xs);
        std::memcpy(&ys, y + i, sizeof ys);
        std::memcpy(&zs, z + i, sizeof zs);
        const Four xxyy = __builtin_shufflevector(xs, ys, 0, 2, 4, 6);
        const Four yyzz = __builtin_shufflevector(ys, zs, 1, 3, 5, 7);
        const Four zzxx = __builtin_shufflevector(zs, xs, 0, 2, 5, 7);
        const Four stored[] = {__builtin_shufflevector(xxyy, zzxx, 0, 2, 4, 6),
                               __builtin_shufflevector(yyzz, xxyy, 0, 2, 5, 7),
                               __builtin_shufflevector(zzxx, yyzz, 1, 3, 5, 7)};
        std::memcpy(out + floatsPerDirection * i, stored, sizeof stored);
    }
}
#endif

// Unit vectors of the first count lanes of a tile's row, interleaved.
static void storeDirections(const float* rayX, const float* rayY, std::size_t count, float* out) {
    float x[tileColumns];
    float y[tileColumns];
    float z[tileColumns];
    for (std::size_t i = 0; i < tileColumns; ++i) {
        const float r2 = rayX[i] * rayX[i] + rayY[i] * rayY[i];
        const float m = sqrtf(r2 + 1.0F);
        x[i] = rayX[i] / m;
        y[i] = rayY[i] / m;
        z[i] = sqrtf(1.0F - (x[i] * x[i] + y[i] * y[i]));
    }
#ifdef __SSE2__
    if (count == tileColumns) {
        storeTileRow(x, y, z, out);
        return;
    }
#endif
    for (std::size_t i = 0; i < count; ++i) {
        out[floatsPerDirection * i] = x[i];
        out[floatsPerDirection * i + 1] = y[i];
        out[floatsPerDirection * i + 2] = z[i];
    }
}

static void computeTiles(float* directions, const float* lensParameters, std::uint32_t columns,
                         std::uint32_t rows) {
    const Lens lens = lensOf(lensParameters);
    for (std::uint32_t v = 0; v < rows; v += tileRows) {
        const std::size_t rowsLeft = rows - v < tileRows ? rows - v : tileRows;
        for (std::uint32_t u = 0; u < columns; u += tileColumns) {
            const std::size_t count = columns - u < tileColumns ? columns - u : tileColumns;
            Tile tile;
            startTile(lens, u, v, tile);
            undistort(lens, tile);
            for (std::size_t r = 0; r < rowsLeft; ++r) {
                storeDirections(
                    tile.x + r * tileColumns, tile.y + r * tileColumns, count,
                    directions + ((v + r) * std::size_t{columns} + u) * floatsPerDirection);
            }
        }
    }
}

}  // namespace vantric::CALCUT_INSTRUCTION_SET
