#include <algorithm>
#include <optional>

#include "tools/plot/Drawing.h"
#include "tools/plot/MapPanel.h"
#include "tools/plot/Panels.h"
#include "tools/terminal/Escape.h"

namespace calcut::tools {

namespace {

/// A scale that holds the robust limits of every table.
std::optional<Scale> scaleOfAll(const Module& module, const std::vector<unsigned>& frequencies) {
    std::optional<Scale> all;
    for (const unsigned k : frequencies) {
        const Statistics statistics = statisticsOf(
            {{module.record.frequencies[k].pixelTable, module.pixels()}, module.mask()});
        if (statistics.count > 0) {
            all = all ? Scale{std::min(all->low, statistics.robustLow),
                              std::max(all->high, statistics.robustHigh)}
                      : Scale{statistics.robustLow, statistics.robustHigh};
        }
    }
    return all ? scaleAround(all->low, all->high) : all;
}

}  // namespace

std::vector<std::uint8_t> drawSheet(const Diagnosis& diagnosis, const std::string& input,
                                    bool sharedScale, const std::string& output) {
    const Module module{
        input == "-" ? "standard input" : escapePath(input.substr(input.find_last_of('/') + 1)),
        diagnosis.file.size(), diagnosis, *diagnosis.record};
    std::vector<unsigned> frequencies;
    for (unsigned k = 0; k < VANTRIC_FREQUENCIES; ++k) {
        if (module.diagnosis.wasRead(frequencyBlock(k, RX_FREQUENCY_PIXEL_TABLE))) {
            frequencies.push_back(k);
        }
    }
    const std::optional<Scale> scale = sharedScale ? scaleOfAll(module, frequencies) : std::nullopt;

    std::vector<Panel> panels;
    const auto add = [&](auto draw, auto... more) {
        panels.emplace_back([&module, draw, more...](Canvas& canvas, const Rect& cell) {
            draw(canvas, cell, module, more...);
        });
    };
    add(drawSummary);
    add(drawMask);
    add(drawRays);
    add(drawPixelValues);
    for (const unsigned k : frequencies) {
        add(drawPixelTable, k, scale);
    }
    for (const unsigned k : frequencies) {
        add(drawFrequencyTables, k);
    }
    if (module.record.psf != nullptr) {
        add(drawPsf);
        add(drawProfile);
    }
    return drawPage(panels, pictureFormatOf(output));
}

const Drawing calcutDrawing = {CALCUT_VERSION, drawSheet, drawDifferences};

}  // namespace calcut::tools
