#include "tools/plot/Numbers.h"

#include <fmt/format.h>
#include <algorithm>
#include <cmath>
#include <numbers>

namespace calcut::plot {

Statistics statisticsOf(const MaskedValues& map) {
    Statistics result;
    std::vector<float> finite;
    finite.reserve(map.values.size());
    double sum = 0.0;
    for (std::size_t at = 0; at < map.values.size(); ++at) {
        if (map.masked(at)) {
            ++result.masked;
        } else if (!std::isfinite(map.values[at])) {
            result.notFinite.push_back(at);
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
    result.deviation = std::sqrt(squares / std::max(count - 1.0, 1.0));
    const auto [low, high] = std::minmax_element(finite.begin(), finite.end());
    result.min = *low;
    result.max = *high;
    constexpr double robustPart = 0.001;
    result.robustLow = quantile(finite, robustPart);
    result.robustHigh = quantile(finite, 1.0 - robustPart);
    return result;
}

double quantile(std::vector<float>& values, double fraction) {
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

std::vector<std::size_t> outliersOf(const MaskedValues& map, const Scale& scale) {
    // The tail of normally distributed noise reaches this far once in several images.
    const double margin = 0.25 * (scale.high - scale.low);
    std::vector<std::size_t> outliers;
    for (std::size_t at = 0; at < map.values.size(); ++at) {
        const double value = map.values[at];
        const bool outside = value < scale.low - margin || value > scale.high + margin;
        if (outside && std::isfinite(value) && !map.masked(at)) {
            outliers.push_back(at);
        }
    }
    return outliers;
}

std::string statisticsText(const Statistics& statistics) {
    if (statistics.count == 0) {
        return !statistics.notFinite.empty() ? "no value is finite"
                                             : "no value: every pixel is masked";
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
    return fmt::format("stored in {} bits, step {:.3g}{}", header.bits, step,
                       width < fineSteps * step ? "; bands are these steps, no contours" : "");
}

Point shiftAt(const VantricCalibration& record, std::size_t pixel) {
    const float* ray = record.directions + 3 * pixel;
    const float* lens = record.lensParameters;
    const std::size_t column = pixel % record.imagerArea.columns;
    const std::size_t row = pixel / record.imagerArea.columns;
    return {double{lens[0]} * ray[0] / ray[2] + lens[2] - static_cast<double>(column),
            double{lens[1]} * ray[1] / ray[2] + lens[3] - static_cast<double>(row)};
}

RayField rayFieldOf(const VantricCalibration& record) {
    constexpr auto none = static_cast<float>(Statistics::none);
    const auto [x, y, columns, rows] = record.imagerArea;
    RayField field;
    std::vector<float> shifts;
    for (std::size_t pixel = 0; pixel < std::size_t{columns} * rows; ++pixel) {
        const float* ray = record.directions + 3 * pixel;
        const bool finite = std::isfinite(ray[0]) && std::isfinite(ray[1]) && std::isfinite(ray[2]);
        const double angle = std::atan2(std::hypot(ray[0], ray[1]), ray[2]);
        const Point shift = shiftAt(record, pixel);
        field.angles.push_back(finite ? static_cast<float>(angle * 180.0 / std::numbers::pi)
                                      : none);
        shifts.push_back(finite ? static_cast<float>(std::hypot(shift.x, shift.y)) : none);
    }
    field.rays = statisticsOf({field.angles});
    field.shifts = statisticsOf({shifts});
    field.arrowStep = std::max(1.0, std::max(columns, rows) / 12.0);
    // None but a few wild ones much longer than half the way to the neighbour.
    constexpr double leastDistortion = 1e-3;  // pixels
    if (const double usual = field.shifts.robustHigh; usual > leastDistortion) {
        // One digit times a power of ten.
        const double limit = std::max(0.7 * field.arrowStep / usual, 1e-6);
        const double power = std::pow(10.0, std::floor(std::log10(limit)));
        field.magnification = power * std::floor(limit / power * (1.0 + 1e-12));
    }
    return field;
}

std::string distortionText(const RayField& field, bool arrows) {
    if (field.rays.count == 0) {
        return "no ray is finite: look at the lens parameters";
    }
    const std::string text = field.rays.notFinite.empty()
                                 ? ""
                                 : fmt::format("{} of {} rays are not finite; ",
                                               field.rays.notFinite.size(), field.angles.size());
    if (field.shifts.count == 0) {
        return text + "none can be compared with a pinhole's";
    }
    if (field.magnification == 0.0) {
        return text + "no distortion: every " + (text.empty() ? "" : "other ") +
               "ray is that of a pinhole";
    }
    return text + (arrows ? fmt::format("arrows, {:.3g}x: to the same ray of a pinhole "
                                        "(longest {:.3g} px)",
                                        field.magnification, field.shifts.max)
                          : fmt::format("up to {:.3g} px from the same ray of a pinhole",
                                        field.shifts.max));
}

}  // namespace calcut::plot
