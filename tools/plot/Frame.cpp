#include "tools/plot/Frame.h"

#include <fmt/format.h>
#include <algorithm>
#include <cmath>

namespace calcut::tools {

namespace {

constexpr Rgb lineColour{0x40, 0x40, 0x40};

const FontStyle titleStyle{.size = 15.0, .bold = true};
const FontStyle compactTitleStyle{.size = 12.0, .bold = true};
const FontStyle noteStyle{.size = 11.5, .colour = quietColour};
const FontStyle tickStyle{.size = 11.5};
const FontStyle labelStyle{.size = 12.0, .anchor = Anchor::Middle};

constexpr double padding = 12.0;
constexpr double titleHeight = 24.0;
constexpr double lineHeight = 17.0;
constexpr double tickLength = 5.0;
constexpr double tickGap = 4.0;     ///< between a tick and its label
constexpr double textHeight = 9.0;  ///< of digits, at tick size
constexpr double labelSpace = 20.0;
constexpr double barGap = 14.0;
constexpr double barWidth = 14.0;
constexpr double barLabels = 52.0;  ///< room for the labels of most bars
constexpr double arrowHeight = 10.0;
constexpr double shortestBar = 150.0;
constexpr double tickSpacing = 42.0;

}  // namespace

void drawHead(Canvas& canvas, const Rect& cell, const FrameText& text) {
    const double x = cell.x + padding;
    const double width = cell.width - 2.0 * padding;
    if (text.compact) {
        canvas.text({cell.x + 30.0, cell.y + titleHeight - 8.0}, text.title, compactTitleStyle);
        return;
    }
    double y = cell.y + padding + 14.0;
    canvas.text({x, y}, canvas.fitText(text.title, titleStyle, width), titleStyle);
    if (!text.note.empty()) {
        y += lineHeight + 2.0;
        canvas.text({x, y}, canvas.fitText(text.note, noteStyle, width), noteStyle);
    }
    y += lineHeight;
    double at = x + 6.0;
    for (const LegendEntry& entry : text.legend) {
        canvas.mark(entry.mark, {at, y - 4.0}, entry.colour);
        canvas.text({at + 11.0, y}, entry.label, noteStyle);
        at += 31.0 + canvas.textWidth(entry.label, noteStyle);
    }
}

Frame::Frame(Canvas& canvas, const Rect& cell, FrameText text, Axis x, Axis y)
    : canvas_(canvas), text_(std::move(text)), x_(std::move(x)), y_(std::move(y)) {
    makeRoom(cell, 0.0);
    area_ = room_;
    placeTicks();
    drawHead(canvas_, cell, text_);
    drawAxes(cell);
}

Frame::Frame(Canvas& canvas, const Rect& cell, FrameText text, ImageShape shape,
             std::optional<ColourBar> bar)
    : canvas_(canvas),
      text_(std::move(text)),
      x_{{shape.firstColumn - 0.5, shape.firstColumn + shape.columns - 0.5, true},
         shape.columnLabel},
      y_{{shape.firstRow - 0.5, shape.firstRow + shape.rows - 0.5, true}, shape.rowLabel},
      shape_(std::move(shape)),
      bar_(std::move(bar)) {
    // Maps with and without a bar get the same place, so that they can be compared by eye.
    makeRoom(cell, barGap + barWidth + tickLength + tickGap + barLabels + labelSpace);
    placeImage();
    drawHead(canvas_, cell, text_);
    drawAxes(cell);
    if (bar_) {
        placeBar();
        drawBar();
    }
}

Point Frame::at(double x, double y) const {
    if (!shape_) {
        return {area_.x + x_.scale.fraction(x) * area_.width,
                area_.bottom() - y_.scale.fraction(y) * area_.height};
    }
    const double column = x - x_.scale.low;
    const double row = y - y_.scale.low;
    const double strip = std::clamp(std::floor((strips_.alongRows ? row : column) / strips_.length),
                                    0.0, strips_.count - 1.0);
    const double cut = strip * strips_.length;
    return strips_.alongRows ? Point{area_.x + strip * strips_.pitch + column * strips_.unit,
                                     area_.y + (row - cut) * strips_.unit}
                             : Point{area_.x + (column - cut) * strips_.unit,
                                     area_.y + strip * strips_.pitch + row * strips_.unit};
}

// --------------------------------------------------------------------------------------- layout --

double Frame::widest(const std::vector<PlacedTick>& ticks) const {
    double width = 0.0;
    for (const PlacedTick& tick : ticks) {
        width = std::max(width, canvas_.textWidth(tick.label, tickStyle));
    }
    return width;
}

double Frame::sideReach() const {
    return std::max(area_.height, std::min(room_.height, shortestBar)) / 2.0 + arrowHeight;
}

void Frame::makeRoom(const Rect& cell, double barSpace) {
    const double head = text_.compact ? titleHeight : padding + titleHeight + 2.0 * lineHeight;
    const double labels = text_.compact ? tickGap : labelSpace + lineHeight + padding;
    const double foot = tickLength + tickGap + textHeight + labels;
    const double pad = text_.compact ? 4.0 : padding;
    room_ = {cell.x, cell.y + head, cell.width, cell.height - head - foot};
    std::vector<PlacedTick> labelled;
    for (const Tick& tick : ticksOf(y_.scale, static_cast<int>(room_.height / verticalSpacing()))) {
        labelled.push_back({0.0, tick.label});
    }
    if (shape_ && needsStrips(shape_->columns, shape_->rows)) {
        labelled.push_back({0.0, fmt::format("-{}", shape_->columns)});
    }
    const double left =
        pad + (y_.label.empty() ? 0.0 : labelSpace) + widest(labelled) + tickGap + tickLength;
    const double right = pad + (barSpace > 0.0 ? barSpace : 12.0);  // half a tick label stands out
    room_.x += left;
    room_.width -= left + right;
}

void Frame::placeTicks() {
    const auto place = [this](const Axis& axis, double length, double spacing, bool across) {
        std::vector<PlacedTick> placed;
        for (const Tick& tick : ticksOf(axis.scale, static_cast<int>(length / spacing))) {
            placed.push_back(
                {across ? at(tick.value, y_.scale.low).x : at(x_.scale.low, tick.value).y,
                 tick.label});
        }
        return placed;
    };
    yTicks_ = place(y_, area_.height, verticalSpacing(), false);
    // Two passes: how many labels fit depends on how wide they are.
    const double least = text_.compact ? 20.0 : 40.0;
    xTicks_ = place(x_, area_.width, least, true);
    xTicks_ = place(x_, area_.width, std::max(least, widest(xTicks_) + 12.0), true);
}

void Frame::placeImage() {
    strips_ = stripsFor(shape_->columns, shape_->rows, room_.width, room_.height);
    area_ = {room_.x + (room_.width - strips_.width) / 2.0,
             room_.y + (room_.height - strips_.height) / 2.0, strips_.width, strips_.height};
    if (inStrips()) {
        placeStripTicks();
    } else {
        placeTicks();
    }
}

/// Along a strip its elements are counted from 0; across, each strip is named by its first one.
void Frame::placeStripTicks() {
    const bool tall = strips_.alongRows;
    const double first = tall ? shape_->firstRow : shape_->firstColumn;
    std::vector<PlacedTick>& along = tall ? yTicks_ : xTicks_;
    std::vector<PlacedTick>& across = tall ? xTicks_ : yTicks_;
    const double start = tall ? area_.y : area_.x;
    const double extent = tall ? area_.height : area_.width;
    const Scale elements{-0.5, strips_.length - 0.5, true};
    for (const Tick& tick : ticksOf(elements, static_cast<int>(extent / tickSpacing))) {
        along.push_back({start + elements.fraction(tick.value) * extent, tick.label});
    }
    const double begin = tall ? area_.x : area_.y;
    const double thickness = strips_.pitch / 2.0;
    const double spacing = tall ? 48.0 : 20.0;
    const auto every = static_cast<std::uint32_t>(std::ceil(spacing / strips_.pitch));
    for (std::uint32_t strip = 0; strip < strips_.count; strip += every) {
        across.push_back(
            {begin + strip * strips_.pitch + thickness / 2.0,
             fmt::format("{:g}", first + static_cast<double>(strip * strips_.length))});
    }
    (tall ? y_ : x_).label = "elements within the strip";
    (tall ? x_ : y_).label = "strip from " + (tall ? shape_->rowLabel : shape_->columnLabel);
}

void Frame::placeBar() {
    const double middle = area_.y + area_.height / 2.0;
    const double height = std::max(area_.height, std::min(room_.height, shortestBar));
    barArea_ = {area_.right() + barGap, middle - height / 2.0, barWidth, height};
    barArea_.y += bar_->valuesAbove ? arrowHeight : 0.0;
    barArea_.height -=
        (bar_->valuesAbove ? arrowHeight : 0.0) + (bar_->valuesBelow ? arrowHeight : 0.0);
    const int count = static_cast<int>(barArea_.height / 30.0);
    for (const Tick& tick : ticksOf(bar_->scale, count)) {
        barTicks_.push_back(
            {barArea_.bottom() - bar_->scale.fraction(tick.value) * barArea_.height, tick.label});
    }
}

// -------------------------------------------------------------------------------------- drawing --

void Frame::image(const std::function<Rgb(const ElementBlock&)>& colourOf) const {
    const auto part = [](std::uint32_t first, std::uint32_t end, int dot, int dots) {
        return first + static_cast<std::uint32_t>(std::uint64_t{end - first} *
                                                  static_cast<std::uint64_t>(dot) /
                                                  static_cast<std::uint64_t>(dots));
    };
    const auto dotsFor = [this](std::uint32_t elements) {
        const double shown = std::ceil(elements * strips_.unit * canvas_.resolution());
        return static_cast<int>(std::min<double>(elements, std::max(shown, 1.0)));
    };
    for (std::uint32_t strip = 0; strip < strips_.count; ++strip) {
        ElementBlock whole{0, shape_->columns, 0, shape_->rows};
        std::uint32_t& first = strips_.alongRows ? whole.firstRow : whole.firstColumn;
        std::uint32_t& end = strips_.alongRows ? whole.endRow : whole.endColumn;
        first = strip * strips_.length;
        end = std::min(end, first + strips_.length);
        Raster raster{dotsFor(whole.endColumn - whole.firstColumn),
                      dotsFor(whole.endRow - whole.firstRow),
                      {}};
        raster.pixels.reserve(static_cast<std::size_t>(raster.width) *
                              static_cast<std::size_t>(raster.height));
        for (int y = 0; y < raster.height; ++y) {
            for (int x = 0; x < raster.width; ++x) {
                raster.pixels.push_back(
                    colourOf({part(whole.firstColumn, whole.endColumn, x, raster.width),
                              part(whole.firstColumn, whole.endColumn, x + 1, raster.width),
                              part(whole.firstRow, whole.endRow, y, raster.height),
                              part(whole.firstRow, whole.endRow, y + 1, raster.height)}));
            }
        }
        canvas_.image(elements(whole), raster);
        canvas_.outline(elements(whole), lineColour);
    }
}

Rect Frame::elements(const ElementBlock& block) const {
    const Point start = at(x_.scale.low + block.firstColumn, y_.scale.low + block.firstRow);
    return {start.x, start.y, (block.endColumn - block.firstColumn) * strips_.unit,
            (block.endRow - block.firstRow) * strips_.unit};
}

void Frame::drawAxes(const Rect& cell) {
    const double foot = area_.bottom() + tickLength + tickGap + textHeight;
    for (const PlacedTick& tick : xTicks_) {
        const Point mark[] = {{tick.place, area_.bottom()},
                              {tick.place, area_.bottom() + tickLength}};
        canvas_.line(mark, lineColour, 1.0);
        canvas_.text({tick.place, foot}, tick.label,
                     {.size = tickStyle.size, .anchor = Anchor::Middle});
    }
    for (const PlacedTick& tick : yTicks_) {
        const Point mark[] = {{area_.x - tickLength, tick.place}, {area_.x, tick.place}};
        canvas_.line(mark, lineColour, 1.0);
        canvas_.text({area_.x - tickLength - tickGap, tick.place + textHeight / 2.0}, tick.label,
                     {.size = tickStyle.size, .anchor = Anchor::End});
    }
    if (!inStrips()) {
        canvas_.outline(area_, lineColour);
    }
    canvas_.text({area_.x + area_.width / 2.0, foot + labelSpace - 2.0}, x_.label, labelStyle);
    FontStyle upwards = labelStyle;
    upwards.upwards = true;
    canvas_.text(
        {area_.x - tickLength - tickGap - widest(yTicks_) - 7.0, area_.y + area_.height / 2.0},
        canvas_.fitText(y_.label, upwards, 2.0 * sideReach()), upwards);
    const double low = area_.y + area_.height / 2.0 + sideReach() - labelSpace;
    canvas_.text({cell.x + padding, std::max(foot, low) + labelSpace + lineHeight - 2.0},
                 canvas_.fitText(text_.footer, tickStyle, cell.width - 2.0 * padding), tickStyle);
}

void Frame::drawBar() {
    const Rect& bar = barArea_;
    Raster raster{1, 256, {}};
    for (int i = 0; i < raster.height; ++i) {
        raster.pixels.push_back(mapColour(bar_->map, 1.0 - (i + 0.5) / raster.height));
    }
    canvas_.image(bar, raster);
    canvas_.outline(bar, lineColour);
    const auto arrow = [&](double base, double tip, double fraction) {
        const Point corners[] = {
            {bar.x, base}, {bar.right(), base}, {bar.x + bar.width / 2.0, tip}, {bar.x, base}};
        canvas_.polygon(corners, mapColour(bar_->map, fraction));
        canvas_.line(corners, lineColour, 1.0);
    };
    if (bar_->valuesAbove) {
        arrow(bar.y, bar.y - arrowHeight, 1.0);
    }
    if (bar_->valuesBelow) {
        arrow(bar.bottom(), bar.bottom() + arrowHeight, 0.0);
    }
    for (const PlacedTick& tick : barTicks_) {
        const Point mark[] = {{bar.right(), tick.place}, {bar.right() + tickLength, tick.place}};
        canvas_.line(mark, lineColour, 1.0);
        canvas_.text({bar.right() + tickLength + tickGap, tick.place + textHeight / 2.0},
                     tick.label, tickStyle);
    }
    FontStyle upwards = labelStyle;
    upwards.upwards = true;
    const double labelAt = bar.right() + tickLength + tickGap + widest(barTicks_);
    canvas_.text({labelAt + 16.0, bar.y + bar.height / 2.0},
                 canvas_.fitText(bar_->label, upwards, 2.0 * sideReach()), upwards);
}

}  // namespace calcut::tools
