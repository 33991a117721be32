#include "tools/plot/RayField.h"

#include <fmt/format.h>
#include <algorithm>
#include <cmath>
#include <limits>
#include <numbers>

#include "tools/plot/Statistics.h"

namespace calcut::tools {

namespace {

constexpr double leastDistortion = 1e-3;  // pixels

/// A plain factor at most limit: one digit times a power of ten.
double roundFactor(double limit) {
    const double power = std::pow(10.0, std::floor(std::log10(limit)));
    return power * std::floor(limit / power * (1.0 + 1e-12));
}

}  // namespace

Shift shiftAt(const VantricCalibration& record, std::uint32_t column, std::uint32_t row) {
    const float* ray =
        record.directions + 3 * (std::size_t{row} * record.imagerArea.columns + column);
    const float* lens = record.lensParameters;
    return {double{lens[0]} * ray[0] / ray[2] + lens[2] - column,
            double{lens[1]} * ray[1] / ray[2] + lens[3] - row};
}

RayField rayFieldOf(const VantricCalibration& record) {
    const auto [x, y, columns, rows] = record.imagerArea;
    RayField field;
    std::vector<float> shifts;
    for (std::uint32_t row = 0; row < rows; ++row) {
        for (std::uint32_t column = 0; column < columns; ++column) {
            const float* ray = record.directions + 3 * field.angles.size();
            const bool finite =
                std::isfinite(ray[0]) && std::isfinite(ray[1]) && std::isfinite(ray[2]);
            field.notFinite += finite ? 0 : 1;
            field.angles.push_back(
                finite ? static_cast<float>(std::atan2(std::hypot(ray[0], ray[1]), ray[2]) * 180.0 /
                                            std::numbers::pi)
                       : std::numeric_limits<float>::quiet_NaN());
            const auto length = static_cast<float>(shiftAt(record, column, row).length());
            if (finite && std::isfinite(length)) {
                shifts.push_back(length);
            }
        }
    }
    field.compared = shifts.size();
    if (!shifts.empty()) {
        field.longest = *std::max_element(shifts.begin(), shifts.end());
    }
    field.arrowStep = std::max(1.0, std::max(columns, rows) / 12.0);
    // None but a few wild ones much longer than half the way to the neighbour.
    const double usual = quantile(shifts, 0.999);
    if (usual > leastDistortion) {
        field.magnification = roundFactor(std::max(0.7 * field.arrowStep / usual, 1e-6));
    }
    return field;
}

std::string distortionText(const RayField& field, bool arrows) {
    std::string text;
    if (field.notFinite > 0) {
        const bool none = field.notFinite == field.angles.size();
        text = none ? "no ray is finite: look at the lens parameters"
                    : fmt::format("{} of {} rays are not finite", field.notFinite,
                                  field.angles.size());
        if (none) {
            return text;
        }
        text += "; ";
    }
    if (field.compared == 0) {
        return text + "none can be compared with a pinhole's";
    }
    if (field.magnification == 0.0) {
        return text + "no distortion: every " + (text.empty() ? "" : "other ") +
               "ray is that of a pinhole";
    }
    return text +
           (arrows ? fmt::format("arrows, {:.3g}x: to the same ray of a pinhole "
                                 "(longest {:.3g} px)",
                                 field.magnification, field.longest)
                   : fmt::format("up to {:.3g} px from the same ray of a pinhole", field.longest));
}

}  // namespace calcut::tools
