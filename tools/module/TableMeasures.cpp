#include "tools/module/TableMeasures.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <numeric>
#include <vector>

namespace calcut::module {

namespace {

/// Regions of pixels that are joined pair by pair. Each points towards the first of its region.
class Regions {
  public:
    explicit Regions(std::size_t size) : towards_(size) {
        std::iota(towards_.begin(), towards_.end(), std::uint32_t{0});
    }

    std::uint32_t firstOf(std::uint32_t pixel) {
        while (towards_[pixel] != pixel) {
            pixel = towards_[pixel] = towards_[towards_[pixel]];
        }
        return pixel;
    }

    void join(std::uint32_t a, std::uint32_t b) {
        a = firstOf(a);
        b = firstOf(b);
        towards_[std::max(a, b)] = std::min(a, b);
    }

  private:
    std::vector<std::uint32_t> towards_;
};

void measureRegions(std::span<const float> values, const std::vector<std::uint8_t>& isValid,
                    std::size_t columns, TableMeasures& result) {
    const auto size = static_cast<std::uint32_t>(values.size());
    const auto width = static_cast<std::uint32_t>(columns);
    Regions regions(size);
    std::size_t neighbours = 0;
    std::vector<std::uint32_t> equal;  // the later pixel of each pair
    const auto look = [&](std::uint32_t at, std::uint32_t before) {
        const bool both = (isValid[at] & isValid[before]) != 0;
        neighbours += both ? 1 : 0;
        if (both && values[at] == values[before]) {
            regions.join(at, before);
            equal.push_back(at);
        }
    };
    for (std::uint32_t row = 0; width != 0 && row < size; row += width) {
        for (std::uint32_t at = row; at < row + width; ++at) {
            if (at != row) {
                look(at, at - 1);
            }
            if (row != 0) {
                look(at, at - width);
            }
        }
    }
    std::vector<std::uint32_t> sizes(size);
    for (std::uint32_t at = 0; at < size; ++at) {
        sizes[regions.firstOf(at)] += isValid[at];
    }
    const auto largest = std::ranges::max_element(sizes);
    const auto first = static_cast<std::uint32_t>(largest - sizes.begin());
    const std::size_t inside = static_cast<std::size_t>(std::ranges::count_if(
        equal, [&](std::uint32_t later) { return regions.firstOf(later) == first; }));
    result.regionAt = first;
    result.regionPixels = *largest;
    result.equalNeighbours = neighbours == inside ? 0.0
                                                  : static_cast<double>(equal.size() - inside) /
                                                        static_cast<double>(neighbours - inside);
}

double medianOf(std::vector<double>& values) {
    const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    return *middle;
}

void measureFarthest(std::span<const float> values, const std::vector<std::uint8_t>& isValid,
                     TableMeasures& result) {
    std::vector<double> finite;
    finite.reserve(values.size());
    for (std::size_t at = 0; at < values.size(); ++at) {
        if (isValid[at] != 0 && std::isfinite(values[at])) {
            finite.push_back(values[at]);
        } else if (isValid[at] != 0 && result.farthest == 0.0) {
            result.farthest = std::numeric_limits<double>::infinity();
            result.farthestAt = at;
        }
    }
    if (finite.empty() || result.farthest != 0.0) {
        return;
    }
    const double median = medianOf(finite);
    double most = 0.0;
    double least = std::numeric_limits<double>::infinity();
    for (std::size_t at = 0; at < values.size(); ++at) {
        const double distance = isValid[at] != 0 ? std::fabs(values[at] - median) : 0.0;
        if (distance > most) {
            most = distance;
            result.farthestAt = at;
        }
        least = distance > 0.0 ? std::min(least, distance) : least;
    }
    if (most > 0.0) {
        std::ranges::transform(finite, finite.begin(),
                               [median](double value) { return std::fabs(value - median); });
        const double spread = 1.4826 * medianOf(finite);
        result.farthest = most / (spread > 0.0 ? spread : least);
    }
}

}  // namespace

TableMeasures measure(std::span<const float> values, std::span<const std::uint8_t> mask,
                      std::size_t columns) {
    TableMeasures result;
    std::vector<std::uint8_t> isValid(values.size(), 1);
    std::ranges::transform(mask, isValid.begin(), [](std::uint8_t entry) { return entry != 0; });
    result.valid = values.size() - countMasked(mask);
    if (result.valid == 0) {
        return result;
    }
    measureRegions(values, isValid, columns, result);
    measureFarthest(values, isValid, result);
    result.constant = result.farthest == 0.0;
    return result;
}

std::size_t countMasked(std::span<const std::uint8_t> mask) {
    return static_cast<std::size_t>(std::count(mask.begin(), mask.end(), std::uint8_t{0}));
}

}  // namespace calcut::module
