// Panel of what a frequency has beside its pixel table.
#include <fmt/format.h>
#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <vector>

#include "tools/plot/Frame.h"
#include "tools/plot/Panels.h"

namespace calcut::tools {

namespace {

struct Series {
    const char* title;
    bool numbers;  ///< written beside the stems
    std::vector<double> a, b;
};

template <class Value>
std::vector<double> listOf(const Value* values, std::size_t count, std::size_t most) {
    return {values, values + std::min(count, most)};
}

/// Stems from zero, with their numbers where some stems hardly show beside the others. side: -1
/// left, 1 right of the entry's place.
void drawStems(const Frame& frame, const std::vector<double>& values, double side, Mark mark,
               Rgb colour, bool numbers) {
    constexpr double apart = 0.13;
    constexpr double textHeight = 7.0;
    for (std::size_t i = 0; i < values.size(); ++i) {
        const double x = static_cast<double>(i) + side * apart;
        const Point foot = frame.at(x, 0.0);
        if (std::isfinite(values[i])) {
            const Point stem[] = {foot, frame.at(x, values[i])};
            frame.canvas().line(stem, colour, 1.6);
            frame.canvas().mark(mark, stem[1], colour);
        }
        if (numbers) {
            // Where there is more room for it.
            const Rect& area = frame.area();
            const bool above = foot.y - area.y > area.height / 2.0;
            frame.canvas().text(
                {foot.x + (side < 0.0 ? -5.0 : 5.0 + textHeight), foot.y + (above ? -4.0 : 4.0)},
                fmt::format("{:.4g}", values[i]),
                {.size = 9.5,
                 .anchor = above ? Anchor::Start : Anchor::End,
                 .upwards = true,
                 .colour = quietColour});
        }
    }
}

/// The entries of A and B side by side as stems from zero.
void drawSeries(Canvas& canvas, const Rect& cell, const Series& series) {
    double low = 0.0;
    double high = 0.0;
    std::size_t notFinite = 0;
    for (const auto* values : {&series.a, &series.b}) {
        for (const double value : *values) {
            notFinite += std::isfinite(value) ? 0 : 1;
            low = std::min(low, std::isfinite(value) ? value : 0.0);
            high = std::max(high, std::isfinite(value) ? value : 0.0);
        }
    }
    const auto entries = static_cast<double>(std::max(series.a.size(), series.b.size()));
    Scale up = scaleAround(low, high);
    const double room = 0.08 * (up.high - up.low);
    up = {low < 0.0 ? up.low - room : 0.0, high > 0.0 || low == 0.0 ? up.high + room : 0.0};
    const std::string title =
        series.title + (notFinite > 0 ? fmt::format(" ({} not finite)", notFinite) : "");
    const Frame frame(canvas, cell, {.title = title, .compact = true},
                      {{-0.5, std::max(entries, 1.0) - 0.5, false, true}, ""}, {up, ""});
    const Point zero[] = {frame.at(-0.5, 0.0), frame.at(std::max(entries, 1.0) - 0.5, 0.0)};
    canvas.line(zero, quietColour, 0.8);
    drawStems(frame, series.a, -1.0, Mark::Dot, curveColour, series.numbers);
    drawStems(frame, series.b, 1.0, Mark::Square, inkColour, series.numbers);
}

}  // namespace

void drawFrequencyTables(Canvas& canvas, const Rect& cell, const Module& module, unsigned k) {
    const VantricFrequencyRecord& frequency = module.record.frequencies[k];
    const auto has = [&](RXFrequencyBlock block) {
        return module.diagnosis.wasRead(frequencyBlock(k, block));
    };
    const auto values = [](const float* data, std::uint8_t count, bool read) {
        return listOf(data, read ? count : 0, VANTRIC_FREQUENCY_VALUES);
    };
    const VantricWigglingTable& a = frequency.wigglingA;
    const VantricWigglingTable& b = frequency.wigglingB;
    const std::size_t entriesA = has(RX_FREQUENCY_WIGGLING_A) ? a.capacity : 0;
    const std::size_t entriesB = has(RX_FREQUENCY_WIGGLING_B) ? b.capacity : 0;
    constexpr std::size_t most = VANTRIC_WIGGLING_ENTRIES;
    const std::array<Series, 4> all = {
        {{"values A and B", true,
          values(frequency.valuesA, frequency.countA, has(RX_FREQUENCY_VALUES_A)),
          values(frequency.valuesB, frequency.countB, has(RX_FREQUENCY_VALUES_B))},
         {"wiggling, first", false, listOf(a.first, entriesA, most),
          listOf(b.first, entriesB, most)},
         {"wiggling, second", false, listOf(a.second, entriesA, most),
          listOf(b.second, entriesB, most)},
         {"wiggling, third", false, listOf(a.third, entriesA, most),
          listOf(b.third, entriesB, most)}}};

    const auto header = [](const char* name, const VantricWigglingTable& table, std::size_t read) {
        return read > 0 ? fmt::format("{}, header {:.5g}", name, std::bit_cast<float>(table.header))
                        : fmt::format("{}: no wiggling table", name);
    };
    const double x = cell.x + 12.0;
    canvas.text({x, cell.y + 26.0}, fmt::format("Frequency {}: small tables, by entry", k),
                {.size = 15.0, .bold = true});
    const TextStyle quiet{.size = 11.5, .colour = quietColour};
    canvas.mark(Mark::Dot, {x + 6.0, cell.y + 41.0}, curveColour);
    canvas.text({x + 17.0, cell.y + 45.0}, header("A", a, entriesA), quiet);
    canvas.mark(Mark::Square, {x + 220.0, cell.y + 41.0}, inkColour);
    canvas.text({x + 231.0, cell.y + 45.0}, header("B", b, entriesB), quiet);

    constexpr double head = 56.0;
    const double width = (cell.width - 16.0) / 2.0;
    const double height = (cell.height - head - 12.0) / 2.0;
    for (std::size_t i = 0; i < all.size(); ++i) {
        const auto column = static_cast<double>(i % 2);
        const auto row = static_cast<double>(i / 2);
        drawSeries(canvas,
                   {cell.x + 8.0 + column * width, cell.y + head + row * height, width, height},
                   all[i]);
    }
}

}  // namespace calcut::tools
