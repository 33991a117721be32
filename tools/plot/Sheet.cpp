// The sheet, and its panel of what is told in words.
#include <fmt/format.h>
#include <algorithm>
#include <cmath>
#include <cstring>

#include "tools/module/Layout.h"
#include "tools/module/Names.h"
#include "tools/plot/Panels.h"
#include "tools/plot/Plot.h"
#include "tools/text/Escape.h"

namespace calcut::plot {

namespace {

/// A line of the summary; second stands in the right half.
struct Line {
    std::string text;
    std::string second{};
    FontStyle style{.size = 13.0};
};

std::string moduleTexts(const module::Diagnosis& module) {
    std::string all;
    for (const auto& [id, text] : {std::pair{RX_BLOCK_TEXT1, module.record->text1},
                                   std::pair{RX_BLOCK_TEXT2, module.record->text2}}) {
        if (module.wasRead(id) && *text != '\0') {
            all += (all.empty() ? "" : "  ·  ") +
                   text::escapeBytes({text, strnlen(text, VANTRIC_TEXT_BYTES)});
        }
    }
    return all;
}

std::vector<Line> linesOf(const module::Diagnosis& module) {
    const VantricCalibration& record = *module.record;
    const std::string layout = module.layout == module::Layout::Packed
                                   ? "packed calibration"
                                   : fmt::format("{} image", module::layoutName(module.layout));
    std::vector<Line> lines = {{fmt::format("{}, {} bytes", layout, module.file.size())}};
    for (const module::Finding& fault : module.faults) {
        lines.push_back({fmt::format("{} at byte {}", fault.what, fault.offset),
                         "",
                         {.size = 13.0, .bold = true, .colour = faultColour}});
    }
    lines.push_back(
        {fmt::format("{} x {} pixels", record.imagerArea.columns, record.imagerArea.rows)});
    lines.push_back({moduleTexts(module)});
    lines.push_back({});
    for (std::size_t i = 0; i < 5; ++i) {
        lines.push_back(
            {i < 4 ? fmt::format("{}  {} pixels", module::lensNames[i], record.lensParameters[i])
                   : "",
             fmt::format("{}  {}", module::lensNames[i + 4], record.lensParameters[i + 4])});
    }
    lines.push_back({});
    for (unsigned k = 0; k < VANTRIC_FREQUENCIES; ++k) {
        if (module.wasRead(module::frequencyBlock(k, RX_FREQUENCY_ID))) {
            const float scalar = record.frequencies[k].scalar;
            lines.push_back(
                {fmt::format("frequency {}:  id {}{}", k, record.frequencies[k].frequencyId,
                             std::isnan(scalar) ? "" : fmt::format(", scalar {}", scalar))});
        }
    }
    lines.push_back({record.psf == nullptr ? "no straylight model"
                                           : fmt::format("straylight:  PSF {} x {}",
                                                         record.psfWidth, record.psfHeight)});
    lines.push_back({});
    for (const char* text : {"Colours reach from 0.1 to 99.9 % of the values. An arrow on",
                             "the bar: some lie outside; ringed: by more than a quarter of it."}) {
        lines.push_back({text, "", {.size = 11.5, .colour = quietColour}});
    }
    return lines;
}

void drawSummary(const Cell& cell, const module::Diagnosis& module, const std::string& name) {
    const double left = cell.x + 12.0;
    const auto put = [&](double x, double y, const std::string& text, const FontStyle& style) {
        drawText(cell.page, {x, y}, text, style, cell.right() - 12.0 - x);
    };
    double y = cell.y + 28.0;
    put(left, y, name, {.size = 17.0, .bold = true});
    const std::vector<Line> lines = linesOf(module);
    // With many lines they move closer together instead of out of the cell.
    const double spacing = std::min(20.0, (cell.height - 44.0) / static_cast<double>(lines.size()));
    for (const auto& [text, second, style] : lines) {
        y += text.empty() && second.empty() ? 0.5 * spacing : spacing;
        put(left, y, text, style);
        put(left + cell.width / 2.0, y, second, style);
    }
}

std::vector<std::uint8_t> drawSheet(const module::Diagnosis& module, const std::string& input,
                                    bool sharedScale, const std::string& output) {
    const std::span<const std::uint8_t> mask = maskOf(module);
    std::vector<unsigned> frequencies;
    // Of all pixel tables together.
    double low = Statistics::none;
    double high = Statistics::none;
    for (unsigned k = 0; k < VANTRIC_FREQUENCIES; ++k) {
        if (module.wasRead(module::frequencyBlock(k, RX_FREQUENCY_PIXEL_TABLE))) {
            frequencies.push_back(k);
            const float* values = module.record->frequencies[k].pixelTable;
            const Statistics statistics =
                sharedScale ? statisticsOf({{values, mask.size()}, mask}) : Statistics{};
            low = std::fmin(low, statistics.robustLow);
            high = std::fmax(high, statistics.robustHigh);
        }
    }
    const std::optional<Scale> scale =
        std::isnan(low) ? std::nullopt : std::optional(scaleAround(low, high));
    std::vector<Panel> panels;
    const auto add = [&](auto draw, auto... more) {
        panels.emplace_back(
            [&module, draw, more...](const Cell& cell) { draw(cell, module, more...); });
    };
    add(drawSummary, input == "-" ? "standard input"
                                  : text::escapePath(input.substr(input.find_last_of('/') + 1)));
    add(drawMask);
    add(drawRays);
    add(drawTable, "Pixel values", module.record->pixelValues, RX_BLOCK_PIXEL_VALUES, std::nullopt);
    for (const unsigned k : frequencies) {
        const VantricFrequencyRecord& frequency = module.record->frequencies[k];
        add(drawTable, fmt::format("Frequency {} (id {}): pixel table", k, frequency.frequencyId),
            frequency.pixelTable, module::frequencyBlock(k, RX_FREQUENCY_PIXEL_TABLE), scale);
    }
    for (const unsigned k : frequencies) {
        add(drawFrequencyTables, k);
    }
    if (module.record->psf != nullptr) {
        add(drawPsf);
        add(drawProfile);
    }
    return drawPage(panels, output);
}

}  // namespace

const Drawing calcutDrawing = {CALCUT_VERSION, drawSheet, drawDifferences};

}  // namespace calcut::plot
