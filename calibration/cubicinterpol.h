#pragma once

#include <cstdint>

#include "calcut/vantric.h"

namespace vantric {

/// One segment of a curve: all that does not depend on the argument, computed once.
struct HermiteSegment {
    float x;          ///< left node
    float value;      ///< at the left node
    float slope;      ///< at the left node
    float quadratic;  ///< factor of s^2
    float cubic;      ///< factor of s^3
};

/// Segment k of the curve, 0 <= k < count - 1.
inline HermiteSegment hermiteSegment(const VantricPoly& poly, std::uint32_t k) {
    const float h = poly.x[k + 1] - poly.x[k];
    const float y0 = poly.y[k];
    const float y1 = poly.y[k + 1];
    const float d0 = poly.slope[k];
    const float d1 = poly.slope[k + 1];
    const float h2 = h * h;
    const float y0h2 = y0 / h2;
    const float y1h2 = y1 / h2;
    const float d0h2 = d0 / h2;
    const float d1h2 = d1 / h2;
    const float quadratic = 3.0F * y1h2 - 3.0F * y0h2 - d1 / h - 2.0F * (d0 / h);
    const float cubic = d0h2 + (d1h2 + (2.0F * (y0h2 / h) - 2.0F * (y1h2 / h)));
    return {poly.x[k], y0, d0, quadratic, cubic};
}

/// Number of segments; 0 for a handle with fewer than two nodes.
std::uint32_t segmentsOf(const VantricPoly& poly);

inline float evaluate(const HermiteSegment& segment, float t) {
    const float s = t - segment.x;
    return segment.value + s * (segment.slope + s * (segment.quadratic + s * segment.cubic));
}

}  // namespace vantric
