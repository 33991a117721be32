// Panel of what is told in words.
#include <fmt/format.h>
#include <algorithm>
#include <cmath>
#include <cstring>
#include <vector>

#include "tools/dump/Names.h"
#include "tools/plot/Panels.h"
#include "tools/terminal/Escape.h"

namespace calcut::tools {

namespace {

const FontStyle body{.size = 13.0};
const FontStyle quiet{.size = 11.5, .colour = quietColour};

/// A line of the panel; second stands in the right half.
struct Line {
    std::string text;
    std::string second{};
    FontStyle style = body;
};

std::string textOf(const char* text) {
    return {text, strnlen(text, VANTRIC_TEXT_BYTES)};
}

std::string moduleTexts(const Module& module) {
    std::string all;
    for (const auto& [id, text] : {std::pair{RX_BLOCK_TEXT1, module.record.text1},
                                   std::pair{RX_BLOCK_TEXT2, module.record.text2}}) {
        if (module.diagnosis.wasRead(id) && *text != '\0') {
            all += (all.empty() ? "" : "  ·  ") + escapeBytes(textOf(text));
        }
    }
    return all;
}

std::vector<Line> linesOf(const Module& module) {
    const VantricCalibration& record = module.record;
    std::vector<Line> lines;
    const Layout layout = module.diagnosis.layout;
    lines.push_back(
        {fmt::format("{}, {} bytes",
                     layout == Layout::Packed ? "packed calibration"
                                              : fmt::format("{} image", layoutName(layout)),
                     module.fileSize)});
    for (const Finding& fault : module.diagnosis.faults) {
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
            {i < 4 ? fmt::format("{}  {} pixels", lensNames[i], record.lensParameters[i]) : "",
             fmt::format("{}  {}", lensNames[i + 4], record.lensParameters[i + 4])});
    }
    lines.push_back({});
    for (unsigned k = 0; k < VANTRIC_FREQUENCIES; ++k) {
        if (module.diagnosis.wasRead(frequencyBlock(k, RX_FREQUENCY_ID))) {
            const VantricFrequencyRecord& frequency = record.frequencies[k];
            lines.push_back({fmt::format(
                "frequency {}:  id {}{}", k, frequency.frequencyId,
                std::isnan(frequency.scalar) ? "" : fmt::format(", scalar {}", frequency.scalar))});
        }
    }
    lines.push_back({record.psf == nullptr ? "no straylight model"
                                           : fmt::format("straylight:  PSF {} x {}",
                                                         record.psfWidth, record.psfHeight)});
    lines.push_back({});
    for (const char* text : {"Colours reach from 0.1 to 99.9 % of the values. An arrow on",
                             "the bar: some lie outside; ringed: by more than a quarter of it."}) {
        lines.push_back({text, "", quiet});
    }
    return lines;
}

}  // namespace

void drawSummary(Canvas& canvas, const Rect& cell, const Module& module) {
    const double left = cell.x + 12.0;
    const auto put = [&](double x, double y, const std::string& text, const FontStyle& style) {
        canvas.text({x, y}, canvas.fitText(text, style, cell.right() - 12.0 - x), style);
    };
    double y = cell.y + 28.0;
    put(left, y, module.name, {.size = 17.0, .bold = true});
    const std::vector<Line> lines = linesOf(module);
    // With many lines they move closer together instead of out of the cell.
    const double spacing = std::min(20.0, (cell.height - 44.0) / static_cast<double>(lines.size()));
    for (const Line& line : lines) {
        const bool empty = line.text.empty() && line.second.empty();
        y += empty ? 0.5 * spacing : spacing;
        put(left, y, line.text, line.style);
        put(left + cell.width / 2.0, y, line.second, line.style);
    }
}

}  // namespace calcut::tools
