#pragma once

#include <cstdint>

#include "calcut/vantric.h"

namespace vantric {

/// One segment of a curve with everything that does not depend on the argument computed once.
struct HermiteSegment {
    float x;          ///< left node
    float value;      ///< at the left node
    float slope;      ///< at the left node
    float quadratic;  ///< factor of s^2
    float cubic;      ///< factor of s^3
};

/// Segment k of the curve, 0 <= k < count - 1.
HermiteSegment hermiteSegment(const VantricPoly& poly, std::uint32_t k);

/// Segments of the curve; 0 for a handle without two nodes.
std::uint32_t segmentsOf(const VantricPoly& poly);

inline float evaluate(const HermiteSegment& segment, float t) {
    const float s = t - segment.x;
    return segment.value + s * (segment.slope + s * (segment.quadratic + s * segment.cubic));
}

}  // namespace vantric
