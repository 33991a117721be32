#include "tools/plot/Rays.h"

#include <fmt/format.h>
#include <algorithm>
#include <cmath>
#include <limits>
#include <numbers>

#include "tools/plot/MapPanel.h"
#include "tools/plot/Panels.h"

namespace calcut::tools {

namespace {

constexpr double leastDistortion = 1e-3;  // pixels

/// A plain factor at most limit: one digit times a power of ten.
double roundFactor(double limit) {
    const double power = std::pow(10.0, std::floor(std::log10(limit)));
    return power * std::floor(limit / power * (1.0 + 1e-12));
}

void drawArrow(Canvas& canvas, Point from, Point to) {
    constexpr double headLength = 6.0;
    constexpr double headAngle = 0.45;
    const double angle = std::atan2(to.y - from.y, to.x - from.x);
    const double length = std::min(headLength, std::hypot(to.x - from.x, to.y - from.y));
    const auto barb = [&](double turn) {
        return Point{to.x - length * std::cos(angle + turn),
                     to.y - length * std::sin(angle + turn)};
    };
    const Point shaft[] = {from, to};
    const Point head[] = {barb(headAngle), to, barb(-headAngle)};
    // A dark edge keeps the arrow visible on light colours.
    for (const auto& [colour, thickness] :
         {std::pair{inkColour, 3.0}, std::pair{paperColour, 1.4}}) {
        canvas.line(shaft, colour, thickness);
        canvas.line(head, colour, thickness);
    }
}

/// About a dozen arrows across.
void drawArrows(const Frame& frame, const Module& module, const RayField& field) {
    const auto [x, y, columns, rows] = module.record.imagerArea;
    const auto across = static_cast<std::uint32_t>(std::max(1.0, columns / field.arrowStep));
    const auto down = static_cast<std::uint32_t>(std::max(1.0, rows / field.arrowStep));
    frame.canvas().beginClip(frame.area());
    for (std::uint32_t j = 0; j < down; ++j) {
        for (std::uint32_t i = 0; i < across; ++i) {
            const std::uint32_t column = (2 * i + 1) * columns / (2 * across);
            const std::uint32_t row = (2 * j + 1) * rows / (2 * down);
            const Shift shift = shiftAt(module.record, column, row);
            if (std::isfinite(shift.length())) {
                drawArrow(frame.canvas(), frame.at(column, row),
                          frame.at(column + field.magnification * shift.x,
                                   row + field.magnification * shift.y));
            }
        }
    }
    frame.canvas().endClip();
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

void drawRays(Canvas& canvas, const Rect& cell, const Module& module) {
    const VantricCalibration& record = module.record;
    const auto [areaX, areaY, columns, rows] = record.imagerArea;
    const RayField field = rayFieldOf(record);
    Map map;
    map.title = "Ray directions";
    map.colourLabel = "angle from the optical axis (degrees)";
    map.columns = columns;
    map.rows = rows;
    map.values.values = field.angles;
    const double cx = record.lensParameters[2];
    const double cy = record.lensParameters[3];
    const bool inside = cx >= -0.5 && cy >= -0.5 && cx <= columns - 0.5 && cy <= rows - 0.5;
    std::vector<LegendEntry> legend{{Mark::Cross, inkColour,
                                     fmt::format("principal point ({:.4g}, {:.4g}){}", cx, cy,
                                                 inside ? "" : ", not on the image")}};
    const bool arrows = field.magnification > 0.0 && !needsStrips(columns, rows);
    map.note = distortionText(field, arrows);
    const Frame frame = drawMap(canvas, cell, map, std::move(legend));
    if (arrows) {
        drawArrows(frame, module, field);
    }
    if (inside) {
        canvas.mark(Mark::Cross, frame.at(cx, cy), inkColour);
    }
}

}  // namespace calcut::tools
