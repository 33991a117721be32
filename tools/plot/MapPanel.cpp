#include "tools/plot/MapPanel.h"

#include <fmt/format.h>
#include <cmath>

#include "tools/plot/Page.h"

namespace calcut::tools {

namespace {

/// So few pixels that are not finite could be overlooked.
constexpr std::size_t fewEnough = 20;

/// The mean's colour; what is not finite or masked is never averaged away.
Rgb colourOf(const Map& map, const Scale& scale, const ElementBlock& block) {
    double sum = 0.0;
    bool anyMasked = false;
    for (std::uint32_t row = block.firstRow; row < block.endRow; ++row) {
        for (std::uint32_t column = block.firstColumn; column < block.endColumn; ++column) {
            const std::size_t at = std::size_t{row} * map.columns + column;
            if (map.values.masked(at)) {
                anyMasked = true;
                continue;
            }
            const double value = map.values.values[at];
            if (!std::isfinite(value) || (scale.logarithmic && value <= 0.0)) {
                return notFiniteColour;
            }
            sum += value;
        }
    }
    const double count =
        static_cast<double>(block.endRow - block.firstRow) * (block.endColumn - block.firstColumn);
    return anyMasked ? maskedColour : mapColour(map.colours, scale.fraction(sum / count));
}

void addEntries(std::vector<LegendEntry>& legend, const Statistics& statistics,
                const Outside& outside, const Scale& scale) {
    if (statistics.masked > 0) {
        legend.push_back({Mark::Box, maskedColour, fmt::format("masked ({})", statistics.masked)});
    }
    if (!outside.undrawn.empty()) {
        const char* what = scale.logarithmic ? "zero, negative or not finite" : "not finite";
        legend.push_back(
            {Mark::Box, notFiniteColour, fmt::format("{} ({})", what, outside.undrawn.size())});
    }
    if (const std::size_t count = outside.outliers.size(); count > 0) {
        legend.push_back(
            {Mark::Ring, inkColour,
             fmt::format("outliers ({}{})", count, count > mostRings ? ", too many to ring" : "")});
    }
}

}  // namespace

Frame drawMap(Canvas& canvas, const Rect& cell, const Map& map, std::vector<LegendEntry> legend) {
    const Statistics statistics = statisticsOf(map.values);
    const Scale scale = map.scale ? *map.scale : robustScale(statistics, map.colours);
    const Outside outside = outsideOf(map.values, scale);
    addEntries(legend, statistics, outside, scale);
    std::optional<ColourBar> bar;
    if (statistics.count > 0) {
        bar = {scale, map.colourLabel, map.colours, outside.below > 0, outside.above > 0};
    }
    Frame frame(
        canvas, cell, {map.title, map.note, std::move(legend), statisticsText(statistics)},
        {map.columns, map.rows, map.firstColumn, map.firstRow, map.columnLabel, map.rowLabel},
        std::move(bar));
    frame.image([&](const ElementBlock& block) { return colourOf(map, scale, block); });
    ringPixels(frame, map.columns, outside.outliers);
    if (outside.undrawn.size() <= fewEnough) {
        ringPixels(frame, map.columns, outside.undrawn);
    }
    return frame;
}

void ringPixels(const Frame& frame, std::uint32_t columns, const std::vector<std::size_t>& pixels) {
    if (pixels.size() > mostRings) {
        return;
    }
    for (const std::size_t pixel : pixels) {
        frame.canvas().mark(Mark::Ring, frame.atElement(pixel % columns, pixel / columns),
                            inkColour);
    }
}

std::vector<std::uint8_t> drawMaps(const std::vector<Map>& maps, PictureFormat format) {
    std::vector<Panel> panels;
    panels.reserve(maps.size());
    for (const Map& map : maps) {
        panels.emplace_back(
            [&map](Canvas& canvas, const Rect& cell) { drawMap(canvas, cell, map); });
    }
    return drawPage(panels, format);
}

PictureFormat pictureFormatOf(const std::string& path) {
    return path.ends_with(".svg") ? PictureFormat::Svg : PictureFormat::Png;
}

}  // namespace calcut::tools
