#include "tools/plot/Frame.h"

#include <fmt/format.h>
#include <algorithm>
#include <cmath>

namespace calcut::plot {

namespace {

constexpr Rgb lineColour{0x40, 0x40, 0x40};

const FontStyle titleStyle{.size = 15.0, .bold = true};
const FontStyle noteStyle{.size = 11.5, .colour = quietColour};
const FontStyle tickStyle{.size = 11.5};
const FontStyle labelStyle{.size = 12.0, .anchor = Anchor::Middle};
const FontStyle sideLabelStyle{.size = 12.0, .anchor = Anchor::Middle, .upwards = true};

constexpr double padding = 12.0;
constexpr double titleHeight = 24.0;
constexpr double lineHeight = 17.0;
constexpr double tickLength = 5.0;
constexpr double tickReach = tickLength + 4.0;  ///< to its label
constexpr double textHeight = 9.0;              ///< of digits, at tick size
constexpr double labelSpace = 20.0;
constexpr double barGap = 14.0;
constexpr double barWidth = 14.0;
constexpr double barLabels = 52.0;  ///< room for the labels of most bars
constexpr double arrowHeight = 10.0;
constexpr double shortestBar = 150.0;

/// Some columns or rows of an image.
struct Range {
    std::uint32_t begin, end;

    [[nodiscard]] std::uint32_t size() const { return end - begin; }
    /// Where the i-th of so many parts begins.
    [[nodiscard]] std::uint32_t bound(int i, int parts) const {
        return begin + static_cast<std::uint32_t>(std::int64_t{size()} * i / parts);
    }
};

double widest(cairo_t* page, const std::vector<Tick>& ticks) {
    double width = 0.0;
    for (const Tick& tick : ticks) {
        width = std::max(width, textWidth(page, tick.label, tickStyle));
    }
    return width;
}

// --------------------------------------------------------------------------------------- layout --

/// Along a strip its elements are counted from 0; across, each strip is named by its first one.
void placeStrips(Frame& frame) {
    const bool tall = frame.strips.alongRows;
    Axis& along = tall ? frame.yAxis : frame.xAxis;
    Axis& across = tall ? frame.xAxis : frame.yAxis;
    across.length = frame.strips.pitch / 2.0;
    across.label = "strip from " + along.label;
    const auto every =
        static_cast<std::uint32_t>(std::ceil((tall ? 48.0 : 20.0) / frame.strips.pitch));
    for (std::uint32_t strip = 0; strip < frame.strips.count; strip += every) {
        across.ticks.push_back({across.start + strip * frame.strips.pitch + across.length / 2.0,
                                fmt::format("{:g}", along.first() + strip * frame.strips.length)});
    }
    const double first = along.first();
    along.label = "elements within the strip";
    along.scale = elementAxis(frame.strips.length, "").scale;
    along.placeTicks(42.0);
    // What is placed on it is told by coordinates of the image, as on any other axis.
    along.scale = elementAxis(frame.strips.length, "", first).scale;
}

void place(Frame& frame, const Cell& cell) {
    const bool compact = frame.parts.compact;
    const double spacing = compact ? 24.0 : 42.0;
    const double head = compact ? titleHeight : padding + titleHeight + 2.0 * lineHeight;
    const double labels = compact ? 4.0 : labelSpace + lineHeight + padding;
    const double foot = tickReach + textHeight + labels;
    const double pad = compact ? 4.0 : padding;
    Rect room{cell.x, cell.y + head, cell.width, cell.height - head - foot};
    Axis vertical{.scale = frame.yAxis.scale, .length = room.height};
    vertical.placeTicks(spacing);
    if (frame.parts.image && needsStrips(frame.xAxis.count(), frame.yAxis.count())) {
        vertical.ticks.push_back({0.0, fmt::format("-{}", frame.xAxis.count())});
    }
    const double left = pad + (frame.yAxis.label.empty() ? 0.0 : labelSpace) +
                        widest(frame.page, vertical.ticks) + tickReach;
    // Maps with and without a bar get the same place, so that they can be compared by eye.
    const double bar = barGap + barWidth + tickReach + barLabels + labelSpace;
    const double right = pad + (frame.parts.image ? bar : 12.0);  // half a tick label stands out
    room.x += left;
    room.width -= left + right;
    frame.area = room;
    if (frame.parts.image) {
        frame.strips = stripsFor(frame.xAxis.count(), frame.yAxis.count(), room.width, room.height);
        frame.area = {room.x + (room.width - frame.strips.width) / 2.0,
                      room.y + (room.height - frame.strips.height) / 2.0, frame.strips.width,
                      frame.strips.height};
    }
    // With its arrows; a little more is left for the labels at the sides.
    frame.barHeight = std::max(frame.area.height, std::min(room.height, shortestBar));
    frame.xAxis.start = frame.area.x;
    frame.xAxis.length = frame.area.width;
    frame.yAxis.start = frame.parts.image ? frame.area.y : frame.area.bottom();
    frame.yAxis.length = frame.parts.image ? frame.area.height : -frame.area.height;
    if (frame.strips.count > 1) {
        placeStrips(frame);
        return;
    }
    frame.yAxis.placeTicks(spacing);
    // Two passes: how many labels fit depends on how wide they are.
    const double least = compact ? 20.0 : 40.0;
    frame.xAxis.placeTicks(least);
    frame.xAxis.placeTicks(std::max(least, widest(frame.page, frame.xAxis.ticks) + 12.0));
}

// -------------------------------------------------------------------------------------- drawing --

/// Ticks of an axis that stands upright; side: -1 left of the edge, 1 right of it.
void drawTicks(cairo_t* page, const Axis& axis, double edge, double side) {
    const FontStyle style{.size = tickStyle.size,
                          .anchor = side < 0.0 ? Anchor::End : Anchor::Start};
    for (const auto& [place, label] : axis.ticks) {
        const double tip = edge + side * tickLength;
        const Point mark[] = {{std::min(edge, tip), place}, {std::max(edge, tip), place}};
        drawLine(page, mark, lineColour, 1.0);
        drawText(page, {edge + side * tickReach, place + textHeight / 2.0}, label, style);
    }
}

/// The label of an axis that stands upright; edge: the middle of it.
void drawLabel(const Frame& frame, const Axis& axis, Point edge, double side) {
    const double away = tickReach + widest(frame.page, axis.ticks) + (side < 0.0 ? 7.0 : 16.0);
    drawText(frame.page, {edge.x + side * away, edge.y}, axis.label, sideLabelStyle,
             frame.barHeight + 2.0 * arrowHeight);
}

void drawAxes(const Frame& frame, const Cell& cell) {
    const Rect& area = frame.area;
    const double middle = area.y + area.height / 2.0;
    const double foot = area.bottom() + tickReach + textHeight;
    for (const auto& [place, label] : frame.xAxis.ticks) {
        const Point mark[] = {{place, area.bottom()}, {place, area.bottom() + tickLength}};
        drawLine(frame.page, mark, lineColour, 1.0);
        drawText(frame.page, {place, foot}, label,
                 {.size = tickStyle.size, .anchor = Anchor::Middle});
    }
    drawTicks(frame.page, frame.yAxis, area.x, -1.0);
    if (frame.strips.count == 1) {
        drawOutline(frame.page, area, lineColour);
    }
    drawText(frame.page, {area.x + area.width / 2.0, foot + labelSpace - 2.0}, frame.xAxis.label,
             labelStyle);
    drawLabel(frame, frame.yAxis, {area.x, middle}, -1.0);
    const double low = middle + frame.barHeight / 2.0 + arrowHeight - labelSpace;
    drawText(frame.page, {cell.x + padding, std::max(foot, low) + labelSpace + lineHeight - 2.0},
             frame.parts.footer, tickStyle, cell.width - 2.0 * padding);
}

void drawBar(const Frame& frame) {
    ColourBar bar = *frame.parts.bar;
    const double above = bar.valuesAbove ? arrowHeight : 0.0;
    const double below = bar.valuesBelow ? arrowHeight : 0.0;
    const Rect place{frame.area.right() + barGap,
                     frame.area.y + frame.area.height / 2.0 - frame.barHeight / 2.0 + above,
                     barWidth, frame.barHeight - (above + below)};
    constexpr int shades = 256;
    drawImage(frame.page, place, 1, shades,
              [&bar](int, int y) { return mapColour(bar.colours, 1.0 - (y + 0.5) / shades); });
    drawOutline(frame.page, place, lineColour);
    const auto arrow = [&](double base, double height, double fraction) {
        const Point corners[] = {{place.x, base},
                                 {place.right(), base},
                                 {place.x + place.width / 2.0, base + height},
                                 {place.x, base}};
        if (height != 0.0) {
            fillPolygon(frame.page, corners, mapColour(bar.colours, fraction));
            drawLine(frame.page, corners, lineColour, 1.0);
        }
    };
    arrow(place.y, -above, 1.0);
    arrow(place.bottom(), below, 0.0);
    bar.start = place.bottom();
    bar.length = -place.height;
    bar.placeTicks(30.0);
    drawTicks(frame.page, bar, place.right(), 1.0);
    drawLabel(frame, bar, {place.right(), place.y + place.height / 2.0}, 1.0);
}

}  // namespace

void Axis::placeTicks(double spacing) {
    ticks = ticksOf(scale, static_cast<int>(std::abs(length) / spacing));
    for (Tick& tick : ticks) {
        tick.value = at(tick.value);
    }
}

Axis elementAxis(std::uint32_t count, std::string label, double first) {
    return {{first - 0.5, first + count - 0.5, true}, std::move(label)};
}

void drawHead(const Cell& cell, const FrameParts& parts) {
    const double x = cell.x + padding;
    const double width = cell.width - 2.0 * padding;
    double y = cell.y + padding + 14.0;
    drawText(cell.page, {x, y}, parts.title, titleStyle, width);
    if (!parts.note.empty()) {
        y += lineHeight + 2.0;
        drawText(cell.page, {x, y}, parts.note, noteStyle, width);
    }
    y += lineHeight;
    double at = x + 6.0;
    for (const LegendEntry& entry : parts.legend) {
        drawMark(cell.page, entry.mark, {at, y - 4.0}, entry.colour);
        drawText(cell.page, {at + 11.0, y}, entry.label, noteStyle);
        at += 31.0 + textWidth(cell.page, entry.label, noteStyle);
    }
}

Frame drawFrame(const Cell& cell, const FrameParts& parts) {
    Frame frame{cell.page, parts, parts.x, parts.y};
    place(frame, cell);
    if (!parts.compact) {
        drawHead(cell, parts);
    }
    drawAxes(frame, cell);
    if (parts.bar) {
        drawBar(frame);
    }
    return frame;
}

Point Frame::at(double x, double y) const {
    const bool tall = strips.alongRows;
    double& along = tall ? y : x;
    const double from = along - (tall ? parts.y : parts.x).scale.low;
    const double strip = std::clamp(std::floor(from / strips.length), 0.0, strips.count - 1.0);
    along -= strip * strips.length;
    Point place{xAxis.at(x), yAxis.at(y)};
    (tall ? place.x : place.y) += strip * strips.pitch;
    return place;
}

void Frame::image(
    const std::function<Rgb(const std::vector<std::size_t>& elements)>& colourOf) const {
    const auto dotsFor = [this](const Range& elements) {
        const double shown = std::ceil(elements.size() * strips.unit * resolution(page));
        return static_cast<int>(std::min<double>(elements.size(), std::max(shown, 1.0)));
    };
    const std::size_t rowLength = parts.x.count();
    std::vector<std::size_t> elements;
    for (std::uint32_t strip = 0; strip < strips.count; ++strip) {
        Range columns{0, parts.x.count()};
        Range rows{0, parts.y.count()};
        Range& cut = strips.alongRows ? rows : columns;
        cut.begin = strip * strips.length;
        cut.end = std::min(cut.end, cut.begin + strips.length);
        const int width = dotsFor(columns);
        const int height = dotsFor(rows);
        const Point start = at(parts.x.scale.low + columns.begin, parts.y.scale.low + rows.begin);
        const Rect place{start.x, start.y, columns.size() * strips.unit, rows.size() * strips.unit};
        drawImage(page, place, width, height, [&](int x, int y) {
            elements.clear();
            for (std::size_t row = rows.bound(y, height); row < rows.bound(y + 1, height); ++row) {
                const std::uint32_t end = columns.bound(x + 1, width);
                for (std::size_t column = columns.bound(x, width); column < end; ++column) {
                    elements.push_back(row * rowLength + column);
                }
            }
            return colourOf(elements);
        });
        drawOutline(page, place, lineColour);
    }
}

void Frame::ring(const std::vector<std::size_t>& elements, std::size_t most) const {
    for (std::size_t i = 0; i < elements.size() && elements.size() <= most; ++i) {
        const std::size_t column = elements[i] % parts.x.count();
        const std::size_t row = elements[i] / parts.x.count();
        drawMark(page, Mark::Ring,
                 at(parts.x.first() + static_cast<double>(column),
                    parts.y.first() + static_cast<double>(row)),
                 inkColour);
    }
}

}  // namespace calcut::plot
