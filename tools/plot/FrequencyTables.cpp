// Panel of what a frequency has beside its pixel table.
#include <fmt/format.h>
#include <algorithm>
#include <bit>
#include <cmath>
#include <string>
#include <vector>

#include "tools/plot/Frame.h"
#include "tools/plot/Panels.h"

namespace calcut::tools {

namespace {

/// Entries of A and B with the same meaning.
struct Series {
    std::string title;
    std::vector<double> a, b;
    bool numbers = false;  ///< beside the stems, where some hardly show among the others
};

template <class Value>
std::vector<double> listOf(const Value* values, int count, int most) {
    return {values, values + std::min(count, most)};
}

/// Stems from zero. side: -1 left, 1 right of the entry's place.
void drawStems(const Frame& frame, const std::vector<double>& values, double side, bool numbers) {
    constexpr double apart = 0.13;
    const Mark mark = side < 0.0 ? Mark::Dot : Mark::Box;
    for (std::size_t i = 0; i < values.size(); ++i) {
        const double x = static_cast<double>(i) + side * apart;
        const Point foot = frame.at(x, 0.0);
        if (std::isfinite(values[i])) {
            const Point stem[] = {foot, frame.at(x, values[i])};
            frame.canvas().line(stem, curveColour, 1.6);
            frame.canvas().mark(mark, stem[1], side < 0.0 ? curveColour : paperColour);
        }
        if (numbers || !std::isfinite(values[i])) {
            // Where there is more room for it.
            const bool above = foot.y - frame.area().y > frame.area().height / 2.0;
            frame.canvas().text(
                {foot.x + (side < 0.0 ? -5.0 : 12.0), foot.y + (above ? -4.0 : 4.0)},
                fmt::format("{:.4g}", values[i]),
                {.size = 9.5,
                 .anchor = above ? Anchor::Start : Anchor::End,
                 .upwards = true,
                 .colour = quietColour});
        }
    }
}

void drawSeries(Canvas& canvas, const Rect& cell, const Series& series) {
    double low = 0.0;
    double high = 0.0;
    for (const auto* values : {&series.a, &series.b}) {
        for (const double value : *values) {
            low = std::isfinite(value) ? std::min(low, value) : low;
            high = std::isfinite(value) ? std::max(high, value) : high;
        }
    }
    const double room = 0.08 * (high - low);
    const Scale up = scaleAround(low < 0.0 ? low - room : 0.0, high > 0.0 ? high + room : 0.0);
    const auto entries = static_cast<double>(std::max(series.a.size(), series.b.size()));
    const double end = std::max(entries, 1.0) - 0.5;
    const Frame frame(canvas, cell, {.title = series.title, .compact = true},
                      {{-0.5, end, true}, ""}, {up, ""});
    const Point zero[] = {frame.at(-0.5, 0.0), frame.at(end, 0.0)};
    canvas.line(zero, quietColour, 0.8);
    drawStems(frame, series.a, -1.0, series.numbers);
    drawStems(frame, series.b, 1.0, series.numbers);
}

}  // namespace

void drawFrequencyTables(Canvas& canvas, const Rect& cell, const Module& module, unsigned k) {
    const VantricFrequencyRecord& frequency = module.record.frequencies[k];
    const VantricWigglingTable& a = frequency.wigglingA;
    const VantricWigglingTable& b = frequency.wigglingB;
    const auto ifRead = [&](RXFrequencyBlock block, int count) {
        return module.diagnosis.wasRead(frequencyBlock(k, block)) ? count : 0;
    };
    const int countA = ifRead(RX_FREQUENCY_WIGGLING_A, a.capacity);
    const int countB = ifRead(RX_FREQUENCY_WIGGLING_B, b.capacity);
    const auto wiggling = [&](const char* name, auto member) {
        return Series{fmt::format("wiggling, {}", name),
                      listOf(a.*member, countA, VANTRIC_WIGGLING_ENTRIES),
                      listOf(b.*member, countB, VANTRIC_WIGGLING_ENTRIES)};
    };
    const Series all[] = {
        {"values A and B",
         listOf(frequency.valuesA, ifRead(RX_FREQUENCY_VALUES_A, frequency.countA),
                VANTRIC_FREQUENCY_VALUES),
         listOf(frequency.valuesB, ifRead(RX_FREQUENCY_VALUES_B, frequency.countB),
                VANTRIC_FREQUENCY_VALUES),
         true},
        wiggling("first", &VantricWigglingTable::first),
        wiggling("second", &VantricWigglingTable::second),
        wiggling("third", &VantricWigglingTable::third)};
    const auto header = [](const char* name, const VantricWigglingTable& table, int count) {
        return count > 0
                   ? fmt::format("{}, header {:.5g}", name, std::bit_cast<float>(table.header))
                   : fmt::format("{}, no wiggling", name);
    };
    drawHead(canvas, cell,
             {fmt::format("Frequency {}: small tables, by entry", k),
              "",
              {{Mark::Dot, curveColour, header("A", a, countA)},
               {Mark::Box, paperColour, header("B", b, countB)}}});
    constexpr double top = 58.0;
    const double width = (cell.width - 16.0) / 2.0;
    const double height = (cell.height - top - 12.0) / 2.0;
    for (int i = 0; i < 4; ++i) {
        drawSeries(canvas,
                   {cell.x + 8.0 + i % 2 * width, cell.y + top + i / 2 * height, width, height},
                   all[i]);
    }
}

}  // namespace calcut::tools
