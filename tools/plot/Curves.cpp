// Panels with values over an axis: what a frequency has beside its pixel table, and the profile of
// the straylight.
#include <fmt/format.h>
#include <algorithm>
#include <bit>
#include <cmath>

#include "tools/plot/Panels.h"

namespace calcut::plot {

namespace {

/// Finite values with a little room around them.
Scale roomyScale(std::span<const float> values) {
    const Statistics all = statisticsOf({values});
    const Scale scale = all.count == 0 ? Scale{} : scaleAround(all.min, all.max);
    const double room = (scale.high - scale.low) * 0.03;
    return {scale.low - room, scale.high + room};
}

bool isFinite(Point point) {
    return std::isfinite(point.x) && std::isfinite(point.y);
}

/// Entries of A and B with the same meaning.
struct Series {
    std::string title;
    std::vector<double> a, b;
    bool numbers = false;  ///< beside the stems, where some hardly show among the others
};

/// Stems from zero. side: -1 left, 1 right of the entry's place.
void drawStems(const Frame& frame, const std::vector<double>& values, double side, bool numbers) {
    constexpr double apart = 0.13;
    const bool left = side < 0.0;
    for (std::size_t i = 0; i < values.size(); ++i) {
        const double x = static_cast<double>(i) + side * apart;
        const Point foot = frame.at(x, 0.0);
        if (std::isfinite(values[i])) {
            const Point stem[] = {foot, frame.at(x, values[i])};
            drawLine(frame.page, stem, curveColour, 1.6);
            drawMark(frame.page, left ? Mark::Dot : Mark::Box, stem[1],
                     left ? curveColour : paperColour);
        }
        if (numbers || !std::isfinite(values[i])) {
            // Where there is more room for it.
            const bool above = foot.y - frame.area.y > frame.area.height / 2.0;
            drawText(frame.page, {foot.x + (left ? -5.0 : 12.0), foot.y + (above ? -4.0 : 4.0)},
                     fmt::format("{:.4g}", values[i]),
                     {.size = 9.5,
                      .anchor = above ? Anchor::Start : Anchor::End,
                      .upwards = true,
                      .colour = quietColour});
        }
    }
}

void drawSeries(const Cell& cell, const Series& series) {
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
    const double begin = -0.7;  // room for the first number
    const double end = std::max(entries, 1.0) - 0.3;
    drawText(cell.page, {cell.x + 30.0, cell.y + 16.0}, series.title, {.size = 12.0, .bold = true});
    const Frame frame =
        drawFrame(cell, {.title = "", .x = {{begin, end, true}}, .y = {up}, .compact = true});
    const Point zero[] = {frame.at(begin, 0.0), frame.at(end, 0.0)};
    drawLine(cell.page, zero, quietColour, 0.8);
    drawStems(frame, series.a, -1.0, series.numbers);
    drawStems(frame, series.b, 1.0, series.numbers);
}

}  // namespace

void drawFrequencyTables(const Cell& cell, const module::Diagnosis& module, unsigned k) {
    const VantricFrequencyRecord& frequency = module.record->frequencies[k];
    const VantricWigglingTable& a = frequency.wigglingA;
    const VantricWigglingTable& b = frequency.wigglingB;
    const auto list = [&](RXFrequencyBlock block, const auto* values, int count, int most) {
        const bool read = module.wasRead(module::frequencyBlock(k, block));
        return std::vector<double>(values, values + (read ? std::min(count, most) : 0));
    };
    constexpr int most = VANTRIC_WIGGLING_ENTRIES;
    const auto wiggling = [&](const char* name, auto member) {
        return Series{fmt::format("wiggling, {}", name),
                      list(RX_FREQUENCY_WIGGLING_A, a.*member, a.capacity, most),
                      list(RX_FREQUENCY_WIGGLING_B, b.*member, b.capacity, most)};
    };
    const Series all[] = {
        {"values A and B",
         list(RX_FREQUENCY_VALUES_A, frequency.valuesA, frequency.countA, VANTRIC_FREQUENCY_VALUES),
         list(RX_FREQUENCY_VALUES_B, frequency.valuesB, frequency.countB, VANTRIC_FREQUENCY_VALUES),
         true},
        wiggling("first", &VantricWigglingTable::first),
        wiggling("second", &VantricWigglingTable::second),
        wiggling("third", &VantricWigglingTable::third)};
    const auto header = [](const char* name, const auto& entries, const auto& table) {
        return entries.empty()
                   ? fmt::format("{}, no wiggling", name)
                   : fmt::format("{}, header {:.5g}", name, std::bit_cast<float>(table.header));
    };
    drawHead(cell, {.title = fmt::format("Frequency {}: small tables, by entry", k),
                    .legend = {{Mark::Dot, curveColour, header("A", all[1].a, a)},
                               {Mark::Box, paperColour, header("B", all[1].b, b)}}});
    constexpr double top = 58.0;
    const double width = (cell.width - 16.0) / 2.0;
    const double height = (cell.height - top - 12.0) / 2.0;
    for (int i = 0; i < 4; ++i) {
        const int row = i / 2;
        drawSeries(
            {{cell.x + 8.0 + i % 2 * width, cell.y + top + row * height, width, height}, cell.page},
            all[i]);
    }
}

void drawProfile(const Cell& cell, const module::Diagnosis& module) {
    constexpr int samples = 600;
    const VantricCalibration& record = *module.record;
    // The origin is among them since the PSF was made.
    const std::uint32_t count =
        std::min<std::uint32_t>(record.straylightPointCount, VANTRIC_STRAYLIGHT_POINTS + 1);
    std::vector<double> xs(record.straylightRadius, record.straylightRadius + count);
    std::vector<float> ys(record.straylightValue, record.straylightValue + count);
    const vantric::PolyOwner curve(
        vantric_createPolyHandle(record.straylightRadius, record.straylightValue, count));
    const Scale across = roomyScale({record.straylightRadius, count});
    for (int i = 0; i <= samples; ++i) {
        xs.push_back(across.low + (across.high - across.low) * i / samples);
        ys.push_back(vantric_cinterpol(curve.get(), static_cast<float>(xs.back())));
    }
    const Frame frame = drawFrame(
        cell, {.title = "Straylight profile",
               .note = fmt::format(
                   "PSF = {:.4g} exp(-g), {:.4g}-norm radius; offset {:.4g}, centre {:.4g}",
                   record.straylightScale, record.straylightExponent, record.straylightOffset,
                   record.straylightCentre),
               .legend = {{Mark::Dot, inkColour, "nodes, with the origin"},
                          {Mark::Box, curveColour, "interpolated"}},
               .x = {across, "radius (PSF elements)"},
               .y = {roomyScale(ys), "exponent g"}});
    std::vector<Point> points;
    for (std::size_t i = 0; i < xs.size(); ++i) {
        points.push_back(frame.at(xs[i], ys[i]));
    }
    for (std::size_t i = count + 1; i < points.size(); ++i) {
        if (isFinite(points[i - 1]) && isFinite(points[i])) {
            drawLine(cell.page, std::span(points).subspan(i - 1, 2), curveColour, 2.0);
        }
    }
    for (const Point& node : std::span(points).first(count)) {
        if (isFinite(node)) {
            drawMark(cell.page, Mark::Dot, node, inkColour);
        }
    }
}

}  // namespace calcut::plot
