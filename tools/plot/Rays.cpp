// Panel of the rays.
#include <fmt/format.h>
#include <algorithm>
#include <cmath>

#include "tools/plot/MapPanel.h"
#include "tools/plot/Panels.h"
#include "tools/plot/RayField.h"

namespace calcut::tools {

namespace {

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

void drawRays(Canvas& canvas, const Rect& cell, const Module& module) {
    const VantricCalibration& record = module.record;
    const auto [areaX, areaY, columns, rows] = record.imagerArea;
    const RayField field = rayFieldOf(record);
    Map map;
    map.title = "Ray directions";
    map.colourLabel = "angle from axis (degrees)";
    map.shape = module.shape();
    map.values.values = field.angles;
    const double cx = record.lensParameters[2];
    const double cy = record.lensParameters[3];
    const bool inside = cx >= -0.5 && cy >= -0.5 && cx <= columns - 0.5 && cy <= rows - 0.5;
    const LegendEntry entry{Mark::Cross, inkColour,
                            fmt::format("principal point ({:.4g}, {:.4g}){}", cx, cy,
                                        inside ? "" : ", not on the image")};
    const bool arrows = field.magnification > 0.0 && !needsStrips(columns, rows);
    map.note = distortionText(field, arrows);
    const Frame frame = drawMap(canvas, cell, map, entry);
    if (arrows) {
        drawArrows(frame, module, field);
    }
    if (inside) {
        canvas.mark(Mark::Cross, frame.at(cx, cy), inkColour);
    }
}

}  // namespace calcut::tools
