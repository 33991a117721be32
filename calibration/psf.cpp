#include "calibration/psf.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>

#include "calibration/calibration.h"
#include "calibration/cubicinterpol.h"
#include "calibration/memory.h"
#include "calibration/owners.h"

using namespace vantric;

namespace {

constexpr float outsideProfile = 1e20F;  // bits 0x60AD78EC: exp(-1e20) is 0

// The record's profile with a point at the origin in front.
struct ProfilePoints {
    explicit ProfilePoints(const VantricCalibration& record)
        : count(static_cast<std::uint8_t>(record.straylightPointCount + 1)) {
        std::copy_n(record.straylightRadius, VANTRIC_STRAYLIGHT_POINTS, radius.begin() + 1);
        std::copy_n(record.straylightValue, VANTRIC_STRAYLIGHT_POINTS, value.begin() + 1);
    }

    std::array<float, VANTRIC_STRAYLIGHT_POINTS + 1> radius{};
    std::array<float, VANTRIC_STRAYLIGHT_POINTS + 1> value{};
    std::uint8_t count;
};

// False if any is NaN.
bool isAscending(const ProfilePoints& points) {
    const auto* end = points.radius.begin() + points.count;
    return std::adjacent_find(points.radius.begin(), end,
                              [](float a, float b) { return !(a <= b); }) == end;
}

// The profile as a curve. What all elements of a segment share is computed once.
class Profile {
  public:
    Profile(const ProfilePoints& points, float scale, float offset)
        : poly_(vantric_createPolyHandle(points.radius.data(), points.value.data(), points.count)),
          segments_(segmentsOf(*poly_)),
          ascending_(isAscending(points)),
          last_(points.radius[points.count - 1U]),
          scale_(scale),
          offset_(offset) {
        for (std::uint32_t k = 0; k < segments_; ++k) {
            segment_[k] = hermiteSegment(*poly_, k);
        }
    }

    /// False when there was no memory for the nodes.
    [[nodiscard]] bool hasSegments() const { return segments_ != 0; }

    /// PSF element at distance r.
    [[nodiscard]] float element(float r) {
        const float value = r > last_ ? 0.0F : scale_ * std::exp(-exponent(r));
        return offset_ != 0.0F ? value + offset_ : value;
    }

  private:
    // Neighbours mostly lie in one segment, so the last one is tried first. That finds the same
    // segment as a search from the start: with ascending nodes, no earlier segment holds an r to
    // the right of its left node.
    [[nodiscard]] float exponent(float r) {
        if (foundLow_ < r && r <= foundHigh_) {
            return evaluate(found_, r);
        }
        for (std::uint32_t k = 0; k < segments_; ++k) {
            if (poly_->x[k] <= r && poly_->x[k + 1] >= r) {
                if (ascending_) {
                    foundLow_ = poly_->x[k];
                    foundHigh_ = poly_->x[k + 1];
                    found_ = segment_[k];
                }
                return evaluate(segment_[k], r);
            }
        }
        return outsideProfile;
    }

    PolyOwner poly_;
    std::uint32_t segments_;
    bool ascending_;
    float last_;
    float scale_;
    float offset_;
    float foundLow_ = 0.0F;
    float foundHigh_ = 0.0F;  // empty interval until a segment was found
    HermiteSegment found_{};
    std::array<HermiteSegment, VANTRIC_STRAYLIGHT_POINTS> segment_{};
};

// Offsets wrap around the edges, so an axis has only this many different distances. Beyond them,
// element i is at distance size - i.
std::uint32_t distancesOf(std::uint32_t size) {
    return size / 2 + 1;
}

// powf(0), powf(1), ... up to the largest distance of either axis.
Owned<float> powersOfDistances(std::uint32_t count, float exponent) {
    Owned<float> powers(allocate<float>(count));
    for (std::uint32_t i = 0; powers && i < count; ++i) {
        powers.get()[i] = std::pow(static_cast<float>(i), exponent);
    }
    return powers;
}

void mirrorRow(float* row, std::uint32_t width) {
    std::reverse_copy(row + 1, row + (width - distancesOf(width)) + 1, row + distancesOf(width));
}

void fillPsf(float* psf, std::uint32_t width, std::uint32_t height, const float* powers,
             float inverseExponent, Profile& profile) {
    const std::uint32_t columns = std::min(distancesOf(width), width);
    const std::uint32_t rows = std::min(distancesOf(height), height);
    const auto row = [&](std::uint32_t y) { return psf + std::size_t{y} * width; };
    for (std::uint32_t y = 0; y < rows; ++y) {
        // Swapping the offsets does not change the sum of their powers, so element (x, y) is
        // element (y, x), which stands in an earlier row while x < y.
        const std::uint32_t known = y < columns ? y : 0;
        for (std::uint32_t x = 0; x < known; ++x) {
            row(y)[x] = row(x)[y];
        }
        // In two passes: calls of one function overlap better than of two by turns.
        float* const elements = row(y);
        for (std::uint32_t x = known; x < columns; ++x) {
            elements[x] = std::pow(powers[y] + powers[x], inverseExponent);
        }
        for (std::uint32_t x = known; x < columns; ++x) {
            elements[x] = profile.element(elements[x]);
        }
        mirrorRow(row(y), width);
    }
    for (std::uint32_t y = rows; y < height; ++y) {
        std::copy_n(row(height - y), width, row(y));
    }
}

Owned<float> allocatePsf(std::uint64_t elements) {
    return Owned<float>(allocate<float>(std::max<std::uint64_t>(elements, 1)));
}

// Null without memory. The curve, without which the process ends, comes before what may be large.
Owned<float> computePsf(const VantricCalibration& record, const ProfilePoints& points) {
    const std::uint32_t width = record.psfWidth;
    const std::uint32_t height = record.psfHeight;
    const std::uint64_t elements = std::uint64_t{width} * height;
    if (elements == 0) {
        return allocatePsf(elements);
    }
    Profile profile(points, record.straylightScale, record.straylightOffset);
    const Owned<float> powers =
        powersOfDistances(distancesOf(std::max(width, height)), record.straylightExponent);
    Owned<float> psf = allocatePsf(elements);
    if (!psf || !powers || !profile.hasSegments()) {
        return nullptr;
    }
    fillPsf(psf.get(), width, height, powers.get(), 1.0F / record.straylightExponent, profile);
    return psf;
}

}  // namespace

std::uint32_t vantric::psfStatus(const VantricCalibration& record) {
    if (vantric_validFloatField(record.straylightScale) == 0) {
        return VANTRIC_ERR_INVALID_ARGUMENT;
    }
    if (record.psf != nullptr) {
        return VANTRIC_ERR_ALREADY_SET;
    }
    if (record.straylightPointCount == 0) {
        return VANTRIC_ERR_INVALID_ARGUMENT;
    }
    const std::uint64_t elements = std::uint64_t{record.psfWidth} * record.psfHeight;
    return record.straylightPointCount > VANTRIC_STRAYLIGHT_POINTS ||
                   elements > VANTRIC_MAX_PSF_ELEMENTS
               ? VANTRIC_ERR_BUFFER_TOO_SMALL
               : VANTRIC_OK;
}

uint32_t vantric_allocateAndCalculatePsf(VantricCalibration* record) {
    if (record == nullptr) {
        return VANTRIC_ERR_INVALID_ARGUMENT;
    }
    if (const std::uint32_t status = psfStatus(*record); status != VANTRIC_OK) {
        return status;
    }
    const ProfilePoints points(*record);
    Owned<float> psf = computePsf(*record, points);
    if (!psf) {
        return VANTRIC_ERR_BUFFER_TOO_SMALL;
    }
    std::copy_n(points.radius.begin(), points.count, record->straylightRadius);
    std::copy_n(points.value.begin(), points.count, record->straylightValue);
    record->straylightPointCount = points.count;
    *psf = record->straylightCentre;
    record->psf = psf.release();
    return VANTRIC_OK;
}
