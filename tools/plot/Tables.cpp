// Panels of the mask and of the tables with one value for each pixel.
#include <fmt/format.h>
#include <algorithm>

#include "tools/plot/MapPanel.h"
#include "tools/plot/Panels.h"

namespace calcut::tools {

namespace {

/// Masked pixels without masked neighbours at their sides.
std::vector<std::size_t> lonePixels(const Module& module) {
    const std::int64_t columns = module.record.imagerArea.columns;
    const std::int64_t rows = module.record.imagerArea.rows;
    const auto masked = [&](std::int64_t column, std::int64_t row) {
        return column >= 0 && row >= 0 && column < columns && row < rows &&
               module.record.pixelMask[row * columns + column] == 0;
    };
    std::vector<std::size_t> lone;
    for (std::int64_t row = 0; row < rows; ++row) {
        for (std::int64_t column = 0; column < columns; ++column) {
            if (masked(column, row) && !masked(column - 1, row) && !masked(column + 1, row) &&
                !masked(column, row - 1) && !masked(column, row + 1)) {
                lone.push_back(static_cast<std::size_t>(row * columns + column));
            }
        }
    }
    return lone;
}

void drawTable(Canvas& canvas, const Rect& cell, const Module& module, std::string title,
               const float* values, std::uint32_t block, const std::optional<Scale>& scale) {
    Map map;
    map.title = std::move(title);
    map.colourLabel = scale ? "value, same scale for all" : "value (unit not recorded)";
    map.shape = module.shape();
    map.values = {{values, module.pixels()}, module.mask()};
    map.scale = scale ? *scale : robustScale(statisticsOf(map.values), map.colours);
    if (const auto* stored = module.diagnosis.readBlock(block)) {
        map.note = storageText(stored->header, map.scale->high - map.scale->low);
    }
    drawMap(canvas, cell, map);
}

}  // namespace

void drawMask(Canvas& canvas, const Rect& cell, const Module& module) {
    constexpr Rgb masked{0x00, 0x00, 0x00};
    constexpr double visible = 4.0;  // an element of that size needs no ring
    const std::span<const std::uint8_t> mask = module.mask();
    const std::uint32_t columns = module.record.imagerArea.columns;
    const auto zeros = static_cast<std::size_t>(std::count(mask.begin(), mask.end(), 0));
    const std::uint8_t highest = *std::max_element(mask.begin(), mask.end());
    FrameText text{.title = "Pixel mask"};
    text.legend = {{Mark::Box, masked, fmt::format("masked, 0 ({})", zeros)}};
    std::optional<ColourBar> bar;
    const Scale scale{1.0, std::max<double>(highest, 2.0), true};
    if (highest > 1) {
        bar = {scale, "mask value"};
    } else {
        text.legend.push_back(
            {Mark::Box, paperColour, fmt::format("valid, 1 ({})", mask.size() - zeros)});
    }
    text.footer = fmt::format("{:.4g} % of {} pixels are masked",
                              100.0 * static_cast<double>(zeros) / static_cast<double>(mask.size()),
                              mask.size());
    const Frame frame(canvas, cell, std::move(text), module.shape(), std::move(bar));
    frame.image([&](const ElementBlock& block) {
        std::uint8_t value = highest;
        for (std::uint32_t row = block.firstRow; row < block.endRow; ++row) {
            const std::uint8_t* first = &mask[std::size_t{row} * columns];
            value = std::min(value,
                             *std::min_element(first + block.firstColumn, first + block.endColumn));
        }
        return value == 0    ? masked
               : highest > 1 ? mapColour(ColourMap::Sequential, scale.fraction(value))
                             : paperColour;
    });
    if (frame.unit() < visible) {
        ringPixels(frame, columns, lonePixels(module), mostRings);
    }
}

void drawPixelValues(Canvas& canvas, const Rect& cell, const Module& module) {
    drawTable(canvas, cell, module, "Pixel values", module.record.pixelValues,
              RX_BLOCK_PIXEL_VALUES, std::nullopt);
}

void drawPixelTable(Canvas& canvas, const Rect& cell, const Module& module, unsigned k,
                    const std::optional<Scale>& scale) {
    const VantricFrequencyRecord& frequency = module.record.frequencies[k];
    drawTable(canvas, cell, module,
              fmt::format("Frequency {} (id {}): pixel table", k, frequency.frequencyId),
              frequency.pixelTable, frequencyBlock(k, RX_FREQUENCY_PIXEL_TABLE), scale);
}

}  // namespace calcut::tools
