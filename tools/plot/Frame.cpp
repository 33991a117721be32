#include "tools/plot/Frame.h"

#include <fmt/format.h>
#include <algorithm>
#include <cmath>

namespace calcut::tools {

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
    /// The i-th of so many parts.
    [[nodiscard]] Range part(int i, int parts) const {
        const auto bound = [this, parts](int at) {
            return begin + static_cast<std::uint32_t>(std::int64_t{size()} * at / parts);
        };
        return {bound(i), bound(i + 1)};
    }
};

double widest(cairo_t* page, const std::vector<Tick>& ticks) {
    double width = 0.0;
    for (const Tick& tick : ticks) {
        width = std::max(width, textWidth(page, tick.label, tickStyle));
    }
    return width;
}

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

Frame::Frame(const Cell& cell, FrameParts parts)
    : page_(cell.page), x_(parts.x), y_(parts.y), parts_(std::move(parts)) {
    place(cell);
    if (!parts_.compact) {
        drawHead(cell, parts_);
    }
    drawAxes(cell);
    if (parts_.bar) {
        drawBar();
    }
}

Point Frame::at(double x, double y) const {
    const bool tall = strips_.alongRows;
    double& along = tall ? y : x;
    const double from = along - (tall ? parts_.y : parts_.x).scale.low;
    const double strip = std::clamp(std::floor(from / strips_.length), 0.0, strips_.count - 1.0);
    along -= strip * strips_.length;
    Point place{x_.at(x), y_.at(y)};
    (tall ? place.x : place.y) += strip * strips_.pitch;
    return place;
}

// --------------------------------------------------------------------------------------- layout --

/// With its arrows; a little more is left for the labels at the sides.
double Frame::barHeight() const {
    return std::max(area_.height, std::min(room_.height, shortestBar));
}

void Frame::place(const Cell& cell) {
    const bool compact = parts_.compact;
    const double head = compact ? titleHeight : padding + titleHeight + 2.0 * lineHeight;
    const double labels = compact ? 4.0 : labelSpace + lineHeight + padding;
    const double foot = tickReach + textHeight + labels;
    const double pad = compact ? 4.0 : padding;
    room_ = {cell.x, cell.y + head, cell.width, cell.height - head - foot};
    Axis vertical{.scale = y_.scale, .length = room_.height};
    vertical.placeTicks(verticalSpacing());
    if (parts_.image && needsStrips(x_.count(), y_.count())) {
        vertical.ticks.push_back({0.0, fmt::format("-{}", x_.count())});
    }
    const double left =
        pad + (y_.label.empty() ? 0.0 : labelSpace) + widest(page_, vertical.ticks) + tickReach;
    // Maps with and without a bar get the same place, so that they can be compared by eye.
    const double bar = barGap + barWidth + tickReach + barLabels + labelSpace;
    const double right = pad + (parts_.image ? bar : 12.0);  // half a tick label stands out
    room_.x += left;
    room_.width -= left + right;
    area_ = room_;
    if (parts_.image) {
        strips_ = stripsFor(x_.count(), y_.count(), room_.width, room_.height);
        area_ = {room_.x + (room_.width - strips_.width) / 2.0,
                 room_.y + (room_.height - strips_.height) / 2.0, strips_.width, strips_.height};
    }
    x_.start = area_.x;
    x_.length = area_.width;
    y_.start = parts_.image ? area_.y : area_.bottom();
    y_.length = parts_.image ? area_.height : -area_.height;
    if (strips_.count > 1) {
        placeStrips();
        return;
    }
    y_.placeTicks(verticalSpacing());
    // Two passes: how many labels fit depends on how wide they are.
    const double least = parts_.compact ? 20.0 : 40.0;
    x_.placeTicks(least);
    x_.placeTicks(std::max(least, widest(page_, x_.ticks) + 12.0));
}

/// Along a strip its elements are counted from 0; across, each strip is named by its first one.
void Frame::placeStrips() {
    const bool tall = strips_.alongRows;
    Axis& along = tall ? y_ : x_;
    Axis& across = tall ? x_ : y_;
    across.length = strips_.pitch / 2.0;
    across.label = "strip from " + along.label;
    const auto every = static_cast<std::uint32_t>(std::ceil((tall ? 48.0 : 20.0) / strips_.pitch));
    for (std::uint32_t strip = 0; strip < strips_.count; strip += every) {
        across.ticks.push_back({across.start + strip * strips_.pitch + across.length / 2.0,
                                fmt::format("{:g}", along.first() + strip * strips_.length)});
    }
    const double first = along.first();
    along.label = "elements within the strip";
    along.scale = elementAxis(strips_.length, "").scale;
    along.placeTicks(42.0);
    along.scale = elementAxis(strips_.length, "", first).scale;
}

// -------------------------------------------------------------------------------------- drawing --

void Frame::image(
    const std::function<Rgb(const std::vector<std::size_t>& elements)>& colourOf) const {
    const auto dotsFor = [this](const Range& elements) {
        const double shown = std::ceil(elements.size() * strips_.unit * resolution(page_));
        return static_cast<int>(std::min<double>(elements.size(), std::max(shown, 1.0)));
    };
    const std::size_t rowLength = parts_.x.count();
    std::vector<std::size_t> elements;
    for (std::uint32_t strip = 0; strip < strips_.count; ++strip) {
        Range columns{0, parts_.x.count()};
        Range rows{0, parts_.y.count()};
        Range& cut = strips_.alongRows ? rows : columns;
        cut.begin = strip * strips_.length;
        cut.end = std::min(cut.end, cut.begin + strips_.length);
        const int width = dotsFor(columns);
        const int height = dotsFor(rows);
        const Point start = atElement(columns.begin - 0.5, rows.begin - 0.5);
        const Rect place{start.x, start.y, columns.size() * strips_.unit,
                         rows.size() * strips_.unit};
        drawImage(page_, place, width, height, [&](int x, int y) {
            const Range across = columns.part(x, width);
            const Range down = rows.part(y, height);
            elements.clear();
            for (std::size_t row = down.begin; row < down.end; ++row) {
                for (std::size_t column = across.begin; column < across.end; ++column) {
                    elements.push_back(row * rowLength + column);
                }
            }
            return colourOf(elements);
        });
        drawOutline(page_, place, lineColour);
    }
}

void Frame::ring(const std::vector<std::size_t>& elements, std::size_t most) const {
    for (std::size_t i = 0; i < elements.size() && elements.size() <= most; ++i) {
        const auto column = static_cast<double>(elements[i] % parts_.x.count());
        const auto row = static_cast<double>(elements[i] / parts_.x.count());
        drawMark(page_, Mark::Ring, atElement(column, row), inkColour);
    }
}

/// The label of an axis that stands upright; edge: the middle of it.
void Frame::drawLabel(const Axis& axis, Point edge, double side) const {
    const double away = tickReach + widest(page_, axis.ticks) + (side < 0.0 ? 7.0 : 16.0);
    drawText(page_, {edge.x + side * away, edge.y}, axis.label, sideLabelStyle,
             barHeight() + 2.0 * arrowHeight);
}

void Frame::drawAxes(const Cell& cell) {
    const double foot = area_.bottom() + tickReach + textHeight;
    for (const auto& [place, label] : x_.ticks) {
        const Point mark[] = {{place, area_.bottom()}, {place, area_.bottom() + tickLength}};
        drawLine(page_, mark, lineColour, 1.0);
        drawText(page_, {place, foot}, label, {.size = tickStyle.size, .anchor = Anchor::Middle});
    }
    drawTicks(page_, y_, area_.x, -1.0);
    if (strips_.count == 1) {
        drawOutline(page_, area_, lineColour);
    }
    drawText(page_, {area_.x + area_.width / 2.0, foot + labelSpace - 2.0}, x_.label, labelStyle);
    drawLabel(y_, {area_.x, area_.y + area_.height / 2.0}, -1.0);
    const double low = area_.y + area_.height / 2.0 + barHeight() / 2.0 + arrowHeight - labelSpace;
    drawText(page_, {cell.x + padding, std::max(foot, low) + labelSpace + lineHeight - 2.0},
             parts_.footer, tickStyle, cell.width - 2.0 * padding);
}

void Frame::drawBar() {
    ColourBar& bar = *parts_.bar;
    const double above = bar.valuesAbove ? arrowHeight : 0.0;
    const double below = bar.valuesBelow ? arrowHeight : 0.0;
    const Rect place{area_.right() + barGap,
                     area_.y + area_.height / 2.0 - barHeight() / 2.0 + above, barWidth,
                     barHeight() - (above + below)};
    constexpr int shades = 256;
    drawImage(page_, place, 1, shades,
              [&bar](int, int y) { return mapColour(bar.colours, 1.0 - (y + 0.5) / shades); });
    drawOutline(page_, place, lineColour);
    const auto arrow = [&](double base, double tip, double fraction) {
        const Point corners[] = {{place.x, base},
                                 {place.right(), base},
                                 {place.x + place.width / 2.0, tip},
                                 {place.x, base}};
        fillPolygon(page_, corners, mapColour(bar.colours, fraction));
        drawLine(page_, corners, lineColour, 1.0);
    };
    if (bar.valuesAbove) {
        arrow(place.y, place.y - arrowHeight, 1.0);
    }
    if (bar.valuesBelow) {
        arrow(place.bottom(), place.bottom() + arrowHeight, 0.0);
    }
    bar.start = place.bottom();
    bar.length = -place.height;
    bar.placeTicks(30.0);
    drawTicks(page_, bar, place.right(), 1.0);
    drawLabel(bar, {place.right(), place.y + place.height / 2.0}, 1.0);
}

}  // namespace calcut::tools
