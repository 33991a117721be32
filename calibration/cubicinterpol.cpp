#include "calibration/cubicinterpol.h"

#include <cmath>
#include <cstdlib>
#include <limits>

#include "calibration/memory.h"

namespace vantric {

namespace {

// Smaller secants count as flat, smaller differences of spacing as none.
constexpr float negligible = 1e-8F;  // bits 0x322BCC77

bool differInSign(float a, float b) {
    return (a > 0.0F && b < 0.0F) || (a < 0.0F && b >= 0.0F);
}

// Three-point end condition. h and del are spacing and secant of the end segment, hNext and delNext
// those of its neighbour. The two corrections preserve the shape.
float endSlope(float h, float hNext, float del, float delNext) {
    const float d = ((2.0F * h + hNext) * del - h * delNext) / (h + hNext);
    if (differInSign(d, del)) {
        return 0.0F;
    }
    if (differInSign(del, delNext) && std::fabs(d) > std::fabs(3.0F * del)) {
        return 3.0F * del;
    }
    return d;
}

// Weighted harmonic mean of the secants on both sides; 0 at an extremum or a flat stretch.
float innerSlope(float a, float b, float dp, float dn) {
    if (std::fabs(dn) < negligible || std::fabs(dp) < negligible || (dn < 0.0F) != (dp < 0.0F)) {
        return 0.0F;
    }
    if (std::fabs(b - a) >= negligible) {
        const float w1 = 2.0F * b + a;
        const float w2 = b + 2.0F * a;
        return (w1 + w2) / (w1 / dp + w2 / dn);
    }
    return 1.0F / ((1.0F / dn + 1.0F / dp) * 0.5F);
}

void computeSlopes(const float* x, const float* y, std::uint32_t n, float* slope) {
    const auto h = [&](std::uint32_t k) { return x[k + 1] - x[k]; };
    const auto del = [&](std::uint32_t k) { return (y[k + 1] - y[k]) / h(k); };
    if (n < 3) {
        const float secant = n == 2 ? del(0) : 0.0F;
        for (std::uint32_t k = 0; k < n; ++k) {
            slope[k] = secant;
        }
        return;
    }
    slope[0] = endSlope(h(0), h(1), del(0), del(1));
    for (std::uint32_t k = 1; k < n - 1; ++k) {
        slope[k] = innerSlope(h(k - 1), h(k), del(k - 1), del(k));
    }
    slope[n - 1] = endSlope(h(n - 2), h(n - 3), del(n - 2), del(n - 3));
}

}  // namespace

std::uint32_t segmentsOf(const VantricPoly& poly) {
    const bool hasNodes = poly.x != nullptr && poly.y != nullptr && poly.slope != nullptr;
    return hasNodes && poly.count >= 2 ? poly.count - 1 : 0;
}

}  // namespace vantric

using namespace vantric;

VantricPoly* vantric_createPolyHandle(const float* x, const float* y, uint32_t n) {
    const std::uint32_t nodes = static_cast<std::int32_t>(n) < 1 ? 0 : n;
    auto* handle = orAbort(allocateZeroed<VantricPoly>(1));
    handle->count = n;
    if (nodes != 0) {
        handle->x = allocate<float>(nodes);
        handle->y = allocate<float>(nodes);
        handle->slope = orAbort(allocate<float>(nodes));
        copyElements(handle->x, x, nodes);
        copyElements(handle->y, y, nodes);
        computeSlopes(x, y, nodes, handle->slope);
    }
    return handle;
}

void vantric_freePoly(VantricPoly* handle) {
    if (handle == nullptr) {
        return;
    }
    std::free(handle->x);
    std::free(handle->y);
    std::free(handle->slope);
    std::free(handle);
}

float vantric_cinterpol(const VantricPoly* handle, float t) {
    return vantric_cinterpol_def(handle, t, std::numeric_limits<float>::quiet_NaN());
}

float vantric_cinterpol_def(const VantricPoly* handle, float t, float fallback) {
    const std::uint32_t segments = segmentsOf(*handle);
    for (std::uint32_t k = 0; k < segments; ++k) {
        if (handle->x[k] <= t && handle->x[k + 1] >= t) {
            return evaluate(hermiteSegment(*handle, k), t);
        }
    }
    return fallback;
}
