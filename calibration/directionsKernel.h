#pragma once

#include <algorithm>

#include "calibration/calibration.h"
#include "calibration/lanes.h"

namespace vantric::CALCUT_INSTRUCTION_SET {

constexpr int rounds = 15;

// Few rays converge earlier, and testing costs time.
constexpr int unwatchedRounds = 5;

// Rays are independent. Those near each other need about the same number of rounds, hence tiles and
// not rows. On 64-bit Arm a tile stays in the registers; elsewhere there are too few of them, and a
// larger tile gives the processor enough independent work to hide the latency of a round.
#ifdef __ARM_NEON
constexpr std::size_t tileColumns = 4;
constexpr std::size_t tileRows = 3;
#else
constexpr std::size_t tileColumns = 16;
constexpr std::size_t tileRows = 3;
#endif
constexpr std::size_t across = tileColumns / lanes;  // registers in a row
constexpr std::size_t registers = across * tileRows;

struct Lens {
    Floats ifx, ify, cx, cy, k1, k2, k3;
    Factors tangential;  // p1, p2, 2 p1, 2 p2
};

struct Tile {
    Floats startX[across], startY[tileRows];  // without distortion
    Floats x[registers], y[registers];        // the rays so far
};

CALCUT_INLINE Lens lensOf(const float* parameters) {
    return {broadcast(1.0F / parameters[0]),
            broadcast(1.0F / parameters[1]),
            broadcast(parameters[2]),
            broadcast(parameters[3]),
            broadcast(parameters[4]),
            broadcast(parameters[5]),
            broadcast(parameters[8]),
            factorsOf(parameters[6], parameters[7], 2.0F * parameters[6], 2.0F * parameters[7])};
}

// Lanes outside the image are worked on and dropped.
CALCUT_INLINE void startTile(const Lens& lens, std::uint32_t column, std::uint32_t row,
                             Tile& tile) {
    unrolled<across>([&](auto i) {
        tile.startX[i] =
            lens.ifx * (ascending(column + static_cast<std::uint32_t>(i * lanes)) - lens.cx);
    });
    unrolled<tileRows>([&](auto i) {
        const auto v = static_cast<std::int32_t>(row + static_cast<std::uint32_t>(i));
        tile.startY[i] = lens.ify * (broadcast(static_cast<float>(v)) - lens.cy);
    });
    unrolled<registers>([&](auto i) {
        tile.x[i] = tile.startX[i % across];
        tile.y[i] = tile.startY[i / across];
    });
}

// One round of the fixed-point inversion. Returns the bits that it changed.
CALCUT_INLINE Words undistortRound(const Lens& lens, Tile& tile) {
    Words changed = {};
    unrolled<registers>([&](auto i) {
        const Floats x = tile.x[i];
        const Floats y = tile.y[i];
        const Floats x2 = x * x;
        const Floats y2 = y * y;
        const Floats r2 = x2 + y2;
        const Floats q = 1.0F / (1.0F + r2 * (lens.k1 + r2 * (lens.k2 + lens.k3 * r2)));
        // Twice a float is exact, however it is computed.
        const Floats dx =
            times<2>(lens.tangential, x) * y + times<1>(lens.tangential, r2 + (x2 + x2));
        const Floats dy =
            times<3>(lens.tangential, x) * y + times<0>(lens.tangential, r2 + (y2 + y2));
        tile.x[i] = (tile.startX[i % across] - dx) * q;
        tile.y[i] = (tile.startY[i / across] - dy) * q;
        changed |= reinterpret_cast<Words>(tile.x[i]) ^ reinterpret_cast<Words>(x);
        changed |= reinterpret_cast<Words>(tile.y[i]) ^ reinterpret_cast<Words>(y);
    });
    return changed;
}

// All rounds, or fewer: one that changes no bit would only be repeated by those after it.
CALCUT_INLINE void undistort(const Lens& lens, Tile& tile) {
    for (int round = 0; round < unwatchedRounds; ++round) {
        undistortRound(lens, tile);
    }
    for (int round = unwatchedRounds; round < rounds; ++round) {
        if (!anySet(undistortRound(lens, tile))) {
            break;
        }
    }
}

// Unit vectors of count rays of one register.
CALCUT_INLINE void storeDirections(Floats rayX, Floats rayY, std::size_t count, float* out) {
    const Floats r2 = rayX * rayX + rayY * rayY;
    const Floats m = squareRoot(r2 + 1.0F);
    const Floats x = rayX / m;
    const Floats y = rayY / m;
    const Floats z = squareRoot(1.0F - (x * x + y * y));
    if (count >= lanes) {
        storeTriples(x, y, z, out);
    } else {
        float all[lanes * floatsPerDirection];
        storeTriples(x, y, z, all);
        std::memcpy(out, all, count * floatsPerDirection * sizeof(float));
    }
}

static void computeTiles(float* directions, const float* lensParameters, std::uint32_t columns,
                         std::uint32_t rows) {
    const Lens lens = lensOf(lensParameters);
    for (std::uint32_t v = 0; v < rows; v += tileRows) {
        for (std::uint32_t u = 0; u < columns; u += tileColumns) {
            Tile tile;
            startTile(lens, u, v, tile);
            undistort(lens, tile);
            unrolled<registers>([&](auto i) {
                const std::size_t row = v + i / across;
                const std::size_t column = u + i % across * lanes;
                if (row < rows && column < columns) {
                    storeDirections(tile.x[i], tile.y[i], columns - column,
                                    directions + (row * columns + column) * floatsPerDirection);
                }
            });
        }
    }
}

}  // namespace vantric::CALCUT_INSTRUCTION_SET
