#include "tools/plot/MapPanel.h"

#include <fmt/format.h>
#include <algorithm>
#include <cmath>

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
            const std::size_t at = std::size_t{row} * map.shape.columns + column;
            if (map.values.masked(at)) {
                anyMasked = true;
                continue;
            }
            const double value = map.values.values[at];
            if (!std::isfinite(value)) {
                return notFiniteColour;
            }
            sum += value;
        }
    }
    const double count =
        static_cast<double>(block.endRow - block.firstRow) * (block.endColumn - block.firstColumn);
    return anyMasked ? maskedColour : mapColour(map.colours, scale.fraction(sum / count));
}

std::vector<LegendEntry> legendOf(const Statistics& statistics, const Outside& outside) {
    std::vector<LegendEntry> legend;
    const auto add = [&](Mark mark, Rgb colour, std::size_t count, const char* format) {
        if (count > 0) {
            legend.push_back({mark, colour, fmt::format(fmt::runtime(format), count)});
        }
    };
    add(Mark::Box, maskedColour, statistics.masked, "masked ({})");
    add(Mark::Box, notFiniteColour, outside.notFinite.size(), "not finite ({})");
    add(Mark::Ring, inkColour, outside.outliers.size(),
        outside.outliers.size() > mostRings ? "outliers ({}, too many to ring)" : "outliers ({})");
    return legend;
}

constexpr double cellWidth = 420.0;
constexpr double cellHeight = 350.0;

/// Few empty cells at a shape that suits a screen.
std::size_t columnsFor(std::size_t panels) {
    if (panels == 4) {
        return 2;
    }
    return panels <= 6 || panels == 9 ? std::min<std::size_t>(panels, 3) : 4;
}

}  // namespace

Frame drawMap(Canvas& canvas, const Rect& cell, const Map& map,
              const std::optional<LegendEntry>& entry) {
    const Statistics statistics = statisticsOf(map.values);
    const Scale scale = map.scale ? *map.scale : robustScale(statistics, map.colours);
    const Outside outside = outsideOf(map.values, scale);
    FrameText text{map.title, map.note, legendOf(statistics, outside),
                   map.footer.empty() ? statisticsText(statistics) : map.footer};
    if (entry) {
        text.legend.insert(text.legend.begin(), *entry);
    }
    std::optional<ColourBar> bar;
    if (statistics.count > 0) {
        bar = {scale, map.colourLabel, map.colours, outside.below > 0, outside.above > 0};
    }
    Frame frame(canvas, cell, std::move(text), map.shape, std::move(bar));
    frame.image([&](const ElementBlock& block) { return colourOf(map, scale, block); });
    ringPixels(frame, map.shape.columns, outside.outliers, mostRings);
    ringPixels(frame, map.shape.columns, outside.notFinite, fewEnough);
    return frame;
}

void ringPixels(const Frame& frame, std::uint32_t columns, const std::vector<std::size_t>& pixels,
                std::size_t most) {
    for (const std::size_t pixel : pixels.size() > most ? std::vector<std::size_t>{} : pixels) {
        frame.canvas().mark(Mark::Ring, frame.atElement(pixel % columns, pixel / columns),
                            inkColour);
    }
}

std::vector<std::uint8_t> drawPage(const std::vector<Panel>& panels, PictureFormat format) {
    const std::size_t columns = std::max<std::size_t>(columnsFor(panels.size()), 1);
    const std::size_t rows = std::max<std::size_t>((panels.size() + columns - 1) / columns, 1);
    Canvas canvas(cellWidth * static_cast<double>(columns), cellHeight * static_cast<double>(rows),
                  format);
    for (std::size_t i = 0; i < panels.size(); ++i) {
        panels[i](canvas, {cellWidth * static_cast<double>(i % columns),
                           cellHeight * static_cast<double>(i / columns), cellWidth, cellHeight});
    }
    return canvas.finish();
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
