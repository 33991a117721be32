#include "tools/plot/Statistics.h"

#include <fmt/format.h>
#include <algorithm>
#include <cmath>

namespace calcut::tools {

Statistics statisticsOf(const MaskedValues& map) {
    Statistics result;
    std::vector<float> finite;
    finite.reserve(map.values.size());
    double sum = 0.0;
    for (std::size_t at = 0; at < map.values.size(); ++at) {
        if (map.masked(at)) {
            ++result.masked;
        } else if (!std::isfinite(map.values[at])) {
            ++result.notFinite;
        } else {
            finite.push_back(map.values[at]);
            sum += map.values[at];
        }
    }
    result.count = finite.size();
    if (finite.empty()) {
        return result;
    }
    const auto count = static_cast<double>(finite.size());
    result.mean = sum / count;
    double squares = 0.0;
    for (const float value : finite) {
        squares += (value - result.mean) * (value - result.mean);
    }
    result.deviation = finite.size() > 1 ? std::sqrt(squares / (count - 1.0)) : 0.0;
    const auto [low, high] = std::minmax_element(finite.begin(), finite.end());
    result.min = *low;
    result.max = *high;
    constexpr double robustPart = 0.001;
    result.robustLow = quantile(finite, robustPart);
    result.robustHigh = quantile(finite, 1.0 - robustPart);
    return result;
}

double quantile(std::vector<float>& values, double fraction) {
    if (values.empty()) {
        return Statistics::none;
    }
    // As many values are left out above a fraction as below its complement.
    const auto last = static_cast<double>(values.size() - 1);
    const double rank =
        fraction < 0.5 ? std::floor(fraction * last) : last - std::floor((1.0 - fraction) * last);
    const auto middle = values.begin() + static_cast<std::ptrdiff_t>(rank);
    std::nth_element(values.begin(), middle, values.end());
    return *middle;
}

Scale robustScale(const Statistics& statistics) {
    return statistics.count == 0 ? Scale{}
                                 : scaleAround(statistics.robustLow, statistics.robustHigh);
}

Outside outsideOf(const MaskedValues& map, const Scale& scale) {
    // The tail of normally distributed noise reaches this far once in several images.
    const double margin = 0.25 * (scale.high - scale.low);
    Outside outside;
    for (std::size_t at = 0; at < map.values.size(); ++at) {
        const double value = map.values[at];
        if (map.masked(at)) {
            continue;
        }
        if (!std::isfinite(value)) {
            outside.notFinite.push_back(at);
            continue;
        }
        outside.below += value < scale.low ? 1 : 0;
        outside.above += value > scale.high ? 1 : 0;
        if (value < scale.low - margin || value > scale.high + margin) {
            outside.outliers.push_back(at);
        }
    }
    return outside;
}

std::string statisticsText(const Statistics& statistics) {
    if (statistics.count == 0) {
        return statistics.notFinite > 0 ? "no value is finite" : "no value: every pixel is masked";
    }
    return fmt::format("min {:.4g}   mean {:.4g}   deviation {:.4g}   max {:.4g}", statistics.min,
                       statistics.mean, statistics.deviation, statistics.max);
}

std::string storageText(const RXBlockHeader& header, double width) {
    if (header.kind != RX_KIND_PACKED_FLOAT) {
        return "stored as floats";
    }
    constexpr double fineSteps = 64.0;  // fewer in a scale show as bands
    const double step = std::abs(double{header.scale});
    std::string text = fmt::format("stored in {} bits, step {:.3g}", header.bits, step);
    if (width < fineSteps * step) {
        text += "; bands are these steps, no contours";
    }
    return text;
}

}  // namespace calcut::tools
