#include "tools/module/TableMeasures.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <numeric>
#include <vector>

namespace calcut::module {

namespace {

/// Regions that grow by joining pixels of one value.
class Regions {
  public:
    struct Region {
        std::uint32_t towards;  ///< a pixel nearer to the one that stands for all
        std::uint32_t pixels = 1;
        std::uint32_t pairs = 0;
    };

    explicit Regions(std::uint32_t size) : regions_(size) {
        for (std::uint32_t at = 0; at < size; ++at) {
            regions_[at].towards = at;
        }
    }

    void join(std::uint32_t a, std::uint32_t b) {
        a = pixelOf(a);
        b = pixelOf(b);
        if (a != b) {
            const auto [small, large] = std::minmax(
                {a, b}, [this](auto x, auto y) { return regions_[x].pixels < regions_[y].pixels; });
            regions_[small].towards = large;
            regions_[large].pixels += regions_[small].pixels;
            regions_[large].pairs += regions_[small].pairs;
            a = large;
        }
        ++regions_[a].pairs;
        largest_ = regions_[a].pixels > regions_[largest_].pixels ? a : largest_;
    }

    [[nodiscard]] std::uint32_t largest() const { return pixelOf(largest_); }
    [[nodiscard]] const Region& operator[](std::uint32_t pixel) const { return regions_[pixel]; }

  private:
    [[nodiscard]] std::uint32_t pixelOf(std::uint32_t pixel) const {
        while (regions_[pixel].towards != pixel) {
            pixel = regions_[pixel].towards;
        }
        return pixel;
    }

    std::vector<Region> regions_;
    std::uint32_t largest_ = 0;
};

/// Calls look(pixel, distance) for each pixel with a neighbour before it, left and above.
template <typename Look>
void forEachPair(std::uint32_t size, std::uint32_t columns, Look look) {
    for (std::uint32_t row = 0; row < size; row += columns) {
        for (std::uint32_t at = row + 1; at < row + columns; ++at) {
            look(at, 1U);
        }
    }
    for (std::uint32_t at = columns; at < size; ++at) {
        look(at, columns);
    }
}

void measureRegions(std::span<const float> values, const std::uint8_t* isValid,
                    std::uint32_t columns, TableMeasures& result) {
    const auto size = static_cast<std::uint32_t>(values.size());
    const float* const value = values.data();
    const auto areValid = [isValid](std::uint32_t at, std::uint32_t distance) {
        return std::uint32_t{isValid[at]} & isValid[at - distance];
    };
    const auto areEqual = [&](std::uint32_t at, std::uint32_t distance) {
        return areValid(at, distance) & (value[at] == value[at - distance] ? 1U : 0U);
    };
    std::uint32_t neighbours = 0;
    std::uint32_t equal = 0;
    forEachPair(size, columns, [&](std::uint32_t at, std::uint32_t distance) {
        neighbours += areValid(at, distance);
        equal += areEqual(at, distance);
    });
    result.regionPixels = 1;
    result.regionAt = static_cast<std::size_t>(std::find(isValid, isValid + size, 1) - isValid);
    if (equal == 0) {
        return;
    }
    Regions regions(size);
    forEachPair(size, columns, [&](std::uint32_t at, std::uint32_t distance) {
        if (areEqual(at, distance) != 0) {
            regions.join(at, at - distance);
        }
    });
    result.regionAt = regions.largest();
    const Regions::Region& largest = regions[regions.largest()];
    result.regionPixels = largest.pixels;
    result.equalNeighbours = neighbours == largest.pairs
                                 ? 0.0
                                 : double(equal - largest.pairs) / (neighbours - largest.pairs);
}

double medianOf(std::vector<double>& values) {
    const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    return *middle;
}

/// Finite valid values; not always of the same columns.
std::vector<double> sampleOf(std::span<const float> values, const std::uint8_t* isValid,
                             std::size_t columns) {
    constexpr std::size_t most = 4096;
    std::size_t stride = values.size() / most + 1;
    while (std::gcd(stride, columns) != 1) {
        ++stride;
    }
    std::vector<double> sample;
    for (std::size_t at = 0; at < values.size(); at += stride) {
        if (isValid[at] != 0 && std::isfinite(values[at])) {
            sample.push_back(values[at]);
        }
    }
    return sample;
}

void measureFarthest(std::span<const float> values, const std::uint8_t* isValid,
                     std::size_t columns, TableMeasures& result) {
    std::vector<double> sample = sampleOf(values, isValid, columns);
    const double median = sample.empty() ? values[result.regionAt] : medianOf(sample);
    double most = 0.0;
    double least = std::numeric_limits<double>::infinity();
    for (std::size_t at = 0; at < values.size(); ++at) {
        const double distance = isValid[at] != 0 ? std::fabs(values[at] - median) : 0.0;
        if (!(distance <= most)) {
            most = std::isnan(distance) ? std::numeric_limits<double>::infinity() : distance;
            result.farthestAt = at;
        }
        least = distance > 0.0 && distance < least ? distance : least;
    }
    std::ranges::transform(sample, sample.begin(),
                           [median](double value) { return std::fabs(value - median); });
    const double spread = sample.empty() ? 0.0 : 1.4826 * medianOf(sample);
    const bool isFinite = std::isfinite(most);
    result.farthest = isFinite && most > 0.0 ? most / (spread > 0.0 ? spread : least) : most;
}

}  // namespace

TableMeasures measure(std::span<const float> values, std::span<const std::uint8_t> mask,
                      std::size_t columns) {
    TableMeasures result;
    result.valid = values.size() - countMasked(mask);
    if (result.valid == 0) {
        return result;
    }
    std::vector<std::uint8_t> isValid(values.size(), 1);
    std::ranges::transform(mask, isValid.begin(), [](std::uint8_t entry) { return entry != 0; });
    measureRegions(values, isValid.data(), static_cast<std::uint32_t>(columns), result);
    measureFarthest(values, isValid.data(), columns, result);
    result.constant = result.farthest == 0.0;
    return result;
}

std::size_t countMasked(std::span<const std::uint8_t> mask) {
    return static_cast<std::size_t>(std::count(mask.begin(), mask.end(), std::uint8_t{0}));
}

}  // namespace calcut::module
