// How two tables of the same shape differ.
#pragma once

#include <cstdint>
#include <optional>

#include "tools/dump/Tables.h"

namespace calcut::tools {

/// Differences are the second value less the first, in double precision, which holds each exactly
/// enough to be 0 only for equal values. NaN equals NaN, an infinity itself.
struct TableDifference {
    std::uint64_t elements = 0;    ///< pixels, whatever their channels
    std::uint64_t differing = 0;   ///< with any channel beyond the tolerance
    std::uint64_t unmeasured = 0;  ///< of those: not finite on one side, so in neither of the below
    double rms = 0.0;              ///< over all values whose difference is finite
    double max = 0.0;              ///< the difference of largest magnitude, with its sign
    std::uint64_t maxAt = 0;       ///< its index among the values
};

/// Whether two values are further apart than the tolerance.
bool differs(float a, float b, double tolerance);

/// For tables of equal shape. Bytes take no tolerance.
TableDifference differenceOf(const Table& a, const Table& b, double tolerance);

/// Whether they can be compared element by element.
bool sameShape(const Table& a, const Table& b);

}  // namespace calcut::tools
