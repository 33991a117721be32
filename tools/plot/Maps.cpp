// Maps of values, and the panels that are one: mask, rays, tables with one value for each pixel,
// point spread function.
#include <fmt/format.h>
#include <algorithm>
#include <cmath>

#include "tools/plot/Numbers.h"
#include "tools/plot/Panels.h"

namespace calcut::plot {

namespace {

/// The mean's colour; what is not finite or masked is never averaged away.
Rgb meanColour(const MaskedValues& map, const std::vector<std::size_t>& elements,
               const ColourBar& bar) {
    double sum = 0.0;
    bool anyMasked = false;
    for (const std::size_t at : elements) {
        if (map.masked(at)) {
            anyMasked = true;
        } else if (!std::isfinite(map.values[at])) {
            return notFiniteColour;
        } else {
            sum += map.values[at];
        }
    }
    const double mean = sum / static_cast<double>(elements.size());
    return anyMasked ? maskedColour : mapColour(bar.colours, bar.scale.fraction(mean));
}

/// Masked pixels without masked neighbours at their sides.
std::vector<std::size_t> lonePixels(std::span<const std::uint8_t> mask, std::size_t columns) {
    const auto masked = [mask](bool inside, std::size_t at) { return inside && mask[at] == 0; };
    std::vector<std::size_t> lone;
    for (std::size_t at = 0; at < mask.size(); ++at) {
        const std::size_t column = at % columns;
        if (mask[at] == 0 && !masked(column > 0, at - 1) && !masked(column + 1 < columns, at + 1) &&
            !masked(at >= columns, at - columns) &&
            !masked(at + columns < mask.size(), at + columns)) {
            lone.push_back(at);
        }
    }
    return lone;
}

void drawArrow(cairo_t* page, Point from, Point to) {
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
        drawLine(page, shaft, colour, thickness);
        drawLine(page, head, colour, thickness);
    }
}

/// About a dozen arrows across.
void drawArrows(const Frame& frame, const VantricCalibration& record, const RayField& field) {
    const auto [x, y, columns, rows] = record.imagerArea;
    const auto across = static_cast<std::uint32_t>(std::max(1.0, columns / field.arrowStep));
    const auto down = static_cast<std::uint32_t>(std::max(1.0, rows / field.arrowStep));
    clipTo(frame.page, frame.area);
    for (std::uint32_t i = 0; i < down * across; ++i) {
        const std::uint32_t column = (2 * (i % across) + 1) * columns / (2 * across);
        const std::uint32_t row = (2 * (i / across) + 1) * rows / (2 * down);
        const Point shift = shiftAt(record, std::size_t{row} * columns + column);
        if (std::isfinite(std::hypot(shift.x, shift.y))) {
            drawArrow(frame.page, frame.at(column, row),
                      frame.at(column + field.magnification * shift.x,
                               row + field.magnification * shift.y));
        }
    }
    cairo_restore(frame.page);
}

}  // namespace

FrameParts imageParts(std::string title, const VantricImagerArea& area) {
    return {.title = std::move(title),
            .x = elementAxis(area.columns, "column (pixels)"),
            .y = elementAxis(area.rows, "row (pixels)"),
            .image = true};
}

Frame drawMap(const Cell& cell, FrameParts parts, ColourBar bar, const MaskedValues& values) {
    const Statistics statistics = statisticsOf(values);
    bar.valuesBelow = statistics.min < bar.scale.low;
    bar.valuesAbove = statistics.max > bar.scale.high;
    parts.bar = statistics.count > 0 ? std::optional(bar) : std::nullopt;
    const auto explain = [&parts](Mark mark, Rgb colour, std::size_t count, const char* format) {
        if (count > 0) {
            parts.legend.push_back({mark, colour, fmt::format(fmt::runtime(format), count)});
        }
    };
    const std::vector<std::size_t> outliers = outliersOf(values, bar.scale);
    explain(Mark::Box, maskedColour, statistics.masked, "masked ({})");
    explain(Mark::Box, notFiniteColour, statistics.notFinite.size(), "not finite ({})");
    explain(Mark::Ring, inkColour, outliers.size(),
            outliers.size() > mostRings ? "outliers ({}, too many to ring)" : "outliers ({})");
    if (parts.footer.empty()) {
        parts.footer = statisticsText(statistics);
    }
    Frame frame = drawFrame(cell, parts);
    frame.image([&](const auto& elements) { return meanColour(values, elements, bar); });
    frame.ring(outliers);
    constexpr std::size_t fewEnough = 20;  // to be overlooked
    frame.ring(statistics.notFinite, fewEnough);
    return frame;
}

std::span<const std::uint8_t> maskOf(const module::Diagnosis& module) {
    const auto [x, y, columns, rows] = module.record->imagerArea;
    return {module.record->pixelMask, std::size_t{columns} * rows};
}

void drawMask(const Cell& cell, const module::Diagnosis& module) {
    constexpr Rgb maskedInk{0x00, 0x00, 0x00};
    constexpr double visible = 4.0;  // an element of that size needs no ring
    const std::span<const std::uint8_t> mask = maskOf(module);
    const auto zeros = static_cast<std::size_t>(std::count(mask.begin(), mask.end(), 0));
    const std::uint8_t highest = *std::max_element(mask.begin(), mask.end());
    const Scale scale{1.0, std::max<double>(highest, 2.0), true};
    FrameParts parts = imageParts("Pixel mask", module.record->imagerArea);
    parts.legend = {{Mark::Box, maskedInk, fmt::format("masked, 0 ({})", zeros)}};
    if (highest > 1) {
        parts.bar = ColourBar{{scale, "mask value"}};
    } else {
        parts.legend.push_back(
            {Mark::Box, paperColour, fmt::format("valid, 1 ({})", mask.size() - zeros)});
    }
    parts.footer = fmt::format(
        "{:.4g} % of {} pixels are masked",
        100.0 * static_cast<double>(zeros) / static_cast<double>(mask.size()), mask.size());
    const Frame frame = drawFrame(cell, parts);
    frame.image([&](const auto& elements) {
        std::uint8_t value = highest;
        for (const std::size_t at : elements) {
            value = std::min(value, mask[at]);
        }
        return value == 0    ? maskedInk
               : highest > 1 ? mapColour(ColourMap::Sequential, scale.fraction(value))
                             : paperColour;
    });
    if (frame.strips.unit < visible) {
        frame.ring(lonePixels(mask, module.record->imagerArea.columns));
    }
}

void drawRays(const Cell& cell, const module::Diagnosis& module) {
    const VantricCalibration& record = *module.record;
    const auto [areaX, areaY, columns, rows] = record.imagerArea;
    const RayField field = rayFieldOf(record);
    const double cx = record.lensParameters[2];
    const double cy = record.lensParameters[3];
    const bool inside = cx >= -0.5 && cy >= -0.5 && cx <= columns - 0.5 && cy <= rows - 0.5;
    const bool arrows = field.magnification > 0.0 && !needsStrips(columns, rows);
    FrameParts parts = imageParts("Ray directions", record.imagerArea);
    parts.note = distortionText(field, arrows);
    parts.legend = {{Mark::Cross, inkColour,
                     fmt::format("principal point ({:.4g}, {:.4g}){}", cx, cy,
                                 inside ? "" : ", not on the image")}};
    const Frame frame =
        drawMap(cell, std::move(parts), {{robustScale(field.rays), "angle from axis (degrees)"}},
                {field.angles});
    if (arrows) {
        drawArrows(frame, record, field);
    }
    if (inside) {
        drawMark(cell.page, Mark::Cross, frame.at(cx, cy), inkColour);
    }
}

void drawTable(const Cell& cell, const module::Diagnosis& module, const std::string& title,
               const float* values, std::uint32_t block, const std::optional<Scale>& scale) {
    const std::span<const std::uint8_t> mask = maskOf(module);
    const MaskedValues map{{values, mask.size()}, mask};
    const Scale colours = scale ? *scale : robustScale(statisticsOf(map));
    FrameParts parts = imageParts(title, module.record->imagerArea);
    if (const auto* stored = module.readBlock(block)) {
        parts.note = storageText(stored->header, colours.high - colours.low);
    }
    const char* label = scale ? "value, same scale for all" : "value (unit not recorded)";
    drawMap(cell, std::move(parts), {{colours, label}}, map);
}

void drawPsf(const Cell& cell, const module::Diagnosis& module) {
    const VantricCalibration& record = *module.record;
    const std::uint32_t width = std::max(record.psfWidth, 1U);
    const std::uint32_t height = std::max(record.psfHeight, 1U);
    const std::span psf(record.psf, std::size_t{width} * height);
    // Distances wrap around the edges, the origin is element (0, 0): element x up to width / 2
    // stands for the offset x, those behind it count back from the end.
    const std::uint32_t behindX = (width - 1) / 2;
    const std::uint32_t behindY = (height - 1) / 2;
    std::vector<float> centred;
    centred.reserve(psf.size());
    for (std::size_t at = 0; at < psf.size(); ++at) {
        const std::size_t x = (at % width + width - behindX) % width;
        const std::size_t y = (at / width + height - behindY) % height;
        centred.push_back(std::log10(psf[y * width + x]));
    }
    // It falls by hundreds of decades; more than this says nothing about the optics.
    constexpr double shown = 12.0;
    const Statistics decades = statisticsOf({centred});
    const Scale scale = decades.count == 0
                            ? Scale{}
                            : scaleAround(std::max(decades.min, decades.max - shown), decades.max);
    drawMap(cell,
            {.title = "Straylight PSF",
             .note = fmt::format("{} x {} elements, the origin in the middle", record.psfWidth,
                                 record.psfHeight),
             .footer = statisticsText(statisticsOf({psf})),
             .x = elementAxis(width, "offset x (pixels)", -static_cast<double>(behindX)),
             .y = elementAxis(height, "offset y (pixels)", -static_cast<double>(behindY)),
             .image = true},
            {{scale, "log10 of the element"}}, {centred});
}

}  // namespace calcut::plot
