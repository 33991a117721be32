#include "tools/plot/RayField.h"

#include <fmt/format.h>
#include <algorithm>
#include <cmath>
#include <limits>
#include <numbers>

#include "tools/plot/Statistics.h"

namespace calcut::tools {

namespace {

/// A plain factor at most limit: one digit times a power of ten.
double roundFactor(double limit) {
    const double power = std::pow(10.0, std::floor(std::log10(limit)));
    return power * std::floor(limit / power * (1.0 + 1e-12));
}

}  // namespace

Point shiftAt(const VantricCalibration& record, std::uint32_t column, std::uint32_t row) {
    const float* ray =
        record.directions + 3 * (std::size_t{row} * record.imagerArea.columns + column);
    const float* lens = record.lensParameters;
    return {double{lens[0]} * ray[0] / ray[2] + lens[2] - column,
            double{lens[1]} * ray[1] / ray[2] + lens[3] - row};
}

RayField rayFieldOf(const VantricCalibration& record) {
    const auto [x, y, columns, rows] = record.imagerArea;
    RayField field;
    field.angles.assign(std::size_t{columns} * rows, std::numeric_limits<float>::quiet_NaN());
    std::vector<float> shifts;
    for (std::size_t at = 0; at < field.angles.size(); ++at) {
        const float* ray = record.directions + 3 * at;
        if (!std::isfinite(ray[0]) || !std::isfinite(ray[1]) || !std::isfinite(ray[2])) {
            ++field.notFinite;
            continue;
        }
        field.angles[at] = static_cast<float>(std::atan2(std::hypot(ray[0], ray[1]), ray[2]) *
                                              180.0 / std::numbers::pi);
        const Point shift = shiftAt(record, static_cast<std::uint32_t>(at % columns),
                                    static_cast<std::uint32_t>(at / columns));
        const auto length = static_cast<float>(std::hypot(shift.x, shift.y));
        if (std::isfinite(length)) {
            shifts.push_back(length);
            field.longest = std::max(field.longest, double{length});
        }
    }
    field.compared = shifts.size();
    field.arrowStep = std::max(1.0, std::max(columns, rows) / 12.0);
    // None but a few wild ones much longer than half the way to the neighbour.
    constexpr double leastDistortion = 1e-3;  // pixels
    if (const double usual = quantile(shifts, 0.999); usual > leastDistortion) {
        field.magnification = roundFactor(std::max(0.7 * field.arrowStep / usual, 1e-6));
    }
    return field;
}

std::string distortionText(const RayField& field, bool arrows) {
    if (field.notFinite == field.angles.size()) {
        return "no ray is finite: look at the lens parameters";
    }
    const std::string text =
        field.notFinite == 0
            ? ""
            : fmt::format("{} of {} rays are not finite; ", field.notFinite, field.angles.size());
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
