// Packed calibrations with blocks of a test's own.
#pragma once

#include <algorithm>

#include "fixtures.h"

namespace fixtures {

/// The minimal calibration with bytes in place of its blocks of these ids (none: left out).
inline Bytes withBlocks(int first, int last, const Bytes& replacement) {
    const Bytes good = minimalPacked();
    Bytes before = prefix(good, 11);
    std::size_t at = 11;
    while (good[at] <= last && good[at] != 255) {
        const std::size_t size = good[at] == 0 ? 4 : good[at] == 2 ? 8 : 3U + 4U * good[at + 2];
        const Bytes block(&good[at], &good[at] + size);
        before = good[at] < first ? bytes(before, block) : before;
        at += size;
    }
    return bytes(before, replacement, Bytes(&good[at], good.data() + good.size()));
}

inline Bytes withBlock(int id, const Bytes& replacement) {
    return withBlocks(id, id, replacement);
}

inline Bytes floatBlock(int id, std::size_t count) {
    return bytes(id, 4, count, Bytes(count * 4));
}

inline Bytes customBlocks(const std::vector<int>& ids) {
    Bytes out;
    for (const int id : ids) {
        out = bytes(out, id, 0, 2, "cc");
    }
    return out;
}

/// vantric_readRXHandlerCalibration into a record.
inline RXReadResult readInto(const Bytes& data, VantricCalibration& record) {
    return vantric_readRXHandlerCalibration(data.data(), data.size(), &record);
}

}  // namespace fixtures
