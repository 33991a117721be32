#include <cmath>
#include <cstdlib>

#include "plain/plain.h"

namespace calcut::plain {

namespace {

template <class T>
T* allocate(std::size_t count) {
    void* memory = std::malloc((count == 0 ? 1 : count) * sizeof(T));
    if (memory == nullptr) {
        std::abort();
    }
    return static_cast<T*>(memory);
}

bool differInSign(float a, float b) {
    return (a > 0.0F && b < 0.0F) || (a < 0.0F && b >= 0.0F);
}

float endSlope(float h0, float h1, float del0, float del1) {
    float d = ((2.0F * h0 + h1) * del0 - h0 * del1) / (h0 + h1);
    if (differInSign(d, del0)) {
        d = 0.0F;
    } else if (differInSign(del0, del1) && std::fabs(d) > std::fabs(3.0F * del0)) {
        d = 3.0F * del0;
    }
    return d;
}

float innerSlope(float a, float b, float dp, float dn) {
    if (std::fabs(dn) < 1e-8F || std::fabs(dp) < 1e-8F || (dn < 0.0F) != (dp < 0.0F)) {
        return 0.0F;
    }
    if (std::fabs(b - a) >= 1e-8F) {
        const float w1 = 2.0F * b + a;
        const float w2 = b + 2.0F * a;
        return (w1 + w2) / (w1 / dp + w2 / dn);
    }
    return 1.0F / ((1.0F / dn + 1.0F / dp) * 0.5F);
}

}  // namespace

VantricPoly* createPoly(const float* x, const float* y, std::uint32_t n) {
    auto* poly = allocate<VantricPoly>(1);
    *poly = {allocate<float>(n), allocate<float>(n), allocate<float>(n), n};
    for (std::uint32_t k = 0; k < n; ++k) {
        poly->x[k] = x[k];
        poly->y[k] = y[k];
    }
    if (n == 2) {
        poly->slope[0] = poly->slope[1] = (y[1] - y[0]) / (x[1] - x[0]);
        return poly;
    }
    for (std::uint32_t k = 0; k < n; ++k) {
        const std::uint32_t left = k == 0 ? 0 : k == n - 1 ? n - 3 : k - 1;
        const float h0 = x[left + 1] - x[left];
        const float h1 = x[left + 2] - x[left + 1];
        const float del0 = (y[left + 1] - y[left]) / h0;
        const float del1 = (y[left + 2] - y[left + 1]) / h1;
        poly->slope[k] = k == 0       ? endSlope(h0, h1, del0, del1)
                         : k == n - 1 ? endSlope(h1, h0, del1, del0)
                                      : innerSlope(h0, h1, del0, del1);
    }
    return poly;
}

float interpolate(const VantricPoly& poly, float t, float fallback) {
    for (std::uint32_t k = 0; k + 1 < poly.count; ++k) {
        if (!(poly.x[k] <= t && poly.x[k + 1] >= t)) {
            continue;
        }
        const float h = poly.x[k + 1] - poly.x[k];
        const float s = t - poly.x[k];
        const float y0 = poly.y[k];
        const float y1 = poly.y[k + 1];
        const float d0 = poly.slope[k];
        const float d1 = poly.slope[k + 1];
        const float h2 = h * h;
        return y0 + s * (d0 + s * (3.0F * (y1 / h2) - 3.0F * (y0 / h2) - d1 / h - 2.0F * (d0 / h) +
                                   s * (d0 / h2 + (d1 / h2 + (2.0F * ((y0 / h2) / h) -
                                                              2.0F * ((y1 / h2) / h))))));
    }
    return fallback;
}

void allocateAndCalculatePsf(VantricCalibration& record) {
    const std::uint32_t m = record.straylightPointCount;
    for (std::uint32_t k = m; k > 0; --k) {
        record.straylightRadius[k] = record.straylightRadius[k - 1];
        record.straylightValue[k] = record.straylightValue[k - 1];
    }
    record.straylightRadius[0] = 0.0F;
    record.straylightValue[0] = 0.0F;
    record.straylightPointCount = static_cast<std::uint8_t>(m + 1);

    const std::uint32_t width = record.psfWidth;
    const std::uint32_t height = record.psfHeight;
    const std::size_t elements = std::size_t{width} * height;
    float* psf = allocate<float>(elements);
    const float p = record.straylightExponent;
    const float ip = 1.0F / p;
    const float rMax = record.straylightRadius[m];
    VantricPoly* poly = createPoly(record.straylightRadius, record.straylightValue, m + 1);
    for (std::uint32_t y = 0; y < height; ++y) {
        const auto ry = static_cast<float>(y > height / 2 ? height - y : y);
        const float a = std::pow(ry, p);
        for (std::uint32_t x = 0; x < width; ++x) {
            const auto rx = static_cast<float>(x > width / 2 ? width - x : x);
            const float r = std::pow(a + std::pow(rx, p), ip);
            const float g = interpolate(*poly, r, 1e20F);
            psf[std::size_t{y} * width + x] =
                r > rMax ? 0.0F : record.straylightScale * std::exp(-g);
        }
    }
    if (record.straylightOffset != 0.0F) {
        for (std::size_t i = 0; i < elements; ++i) {
            psf[i] += record.straylightOffset;
        }
    }
    psf[0] = record.straylightCentre;
    vantric_freePoly(poly);
    record.psf = psf;
}

}  // namespace calcut::plain
