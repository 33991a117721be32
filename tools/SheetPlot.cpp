#include "SheetPlot.h"

#include <fmt/format.h>
#include <algorithm>
#include <array>
#include <cmath>

namespace calcut::tools {

namespace {

constexpr Rgb frameColour{0x40, 0x40, 0x40};
constexpr Rgb quietColour{0x60, 0x60, 0x60};

const TextStyle titleStyle{.size = 15.0, .bold = true};
const TextStyle noteStyle{.size = 11.5, .colour = quietColour};
const TextStyle tickStyle{.size = 11.5};
const TextStyle labelStyle{.size = 12.0, .anchor = Anchor::Middle};

constexpr double padding = 12.0;
constexpr double titleHeight = 26.0;
constexpr double lineHeight = 17.0;
constexpr double tickLength = 5.0;
constexpr double tickGap = 4.0;     ///< between a tick and its label
constexpr double textHeight = 9.0;  ///< of digits, at tick size
constexpr double labelSpace = 20.0;
constexpr double barGap = 14.0;
constexpr double barWidth = 14.0;

/// A step of 1, 2 or 5 times a power of ten, no smaller than atLeast.
double roundStep(double atLeast) {
    const double power = std::pow(10.0, std::floor(std::log10(atLeast)));
    for (const double factor : {1.0, 2.0, 5.0}) {
        if (factor * power >= atLeast * (1.0 - 1e-9)) {
            return factor * power;
        }
    }
    return 10.0 * power;
}

std::string tickLabel(double value, double step, double largest) {
    const int stepDigits = static_cast<int>(std::floor(std::log10(step) + 1e-9));
    if (largest < 1e6 && step >= 0.99e-4) {
        return fmt::format("{:.{}f}", value, std::max(0, -stepDigits));
    }
    if (value == 0.0) {
        return "0";
    }
    // So many digits that neighbouring ticks differ.
    const int digits = static_cast<int>(std::floor(std::log10(std::abs(value)))) - stepDigits + 1;
    return fmt::format("{:.{}g}", value, std::clamp(digits, 1, 15));
}

std::vector<Tick> linearTicks(const Scale& scale, int count) {
    double step = roundStep((scale.high - scale.low) / std::max(count, 1));
    if (scale.whole) {
        step = std::max(step, 1.0);
    }
    const double largest = std::max(std::abs(scale.low), std::abs(scale.high));
    const double slack = step * 1e-6;
    std::vector<Tick> ticks;
    const double first = std::ceil((scale.low - slack) / step);
    const double last = std::floor((scale.high + slack) / step);
    constexpr double mostTicks = 100.0;
    const int steps = static_cast<int>(std::min(last - first, mostTicks));
    for (int i = 0; i <= steps; ++i) {
        const double value = first + i == 0.0 ? 0.0 : (first + i) * step;
        ticks.push_back({value, tickLabel(value, step, largest)});
    }
    return ticks;
}

/// One, two and five times the powers of ten; fewer than two of them say nothing, then round
/// values.
std::vector<Tick> denseLogarithmicTicks(const Scale& scale, int count) {
    std::vector<Tick> ticks;
    const int lowest = static_cast<int>(std::floor(std::log10(scale.low)));
    const int highest = static_cast<int>(std::floor(std::log10(scale.high)));
    for (int power = lowest; power <= highest; ++power) {
        for (const double factor : {1.0, 2.0, 5.0}) {
            const double value = factor * std::pow(10.0, power);
            if (value >= scale.low * (1.0 - 1e-9) && value <= scale.high * (1.0 + 1e-9)) {
                ticks.push_back({value, fmt::format("{:.3g}", value)});
            }
        }
    }
    return ticks.size() < 2 ? linearTicks({scale.low, scale.high}, count) : ticks;
}

/// Powers of ten, thinned out to the wanted number.
std::vector<Tick> logarithmicTicks(const Scale& scale, int count) {
    const double first = std::ceil(std::log10(scale.low) - 1e-6);
    const double last = std::floor(std::log10(scale.high) + 1e-6);
    if (last - first < 2.0) {
        return denseLogarithmicTicks(scale, count);
    }
    const double step = std::max(1.0, roundStep((last - first) / std::max(count, 1)));
    std::vector<Tick> ticks;
    const double start = std::ceil(first / step) * step;
    const int steps = static_cast<int>(std::floor((last - start) / step));
    for (int i = 0; i <= steps; ++i) {
        const double power = start + i * step;
        const double value = std::pow(10.0, power);
        ticks.push_back({value, power > -3 && power < 4 ? fmt::format("{:g}", value)
                                                        : fmt::format("1e{:g}", power)});
    }
    return ticks;
}

double widestLabel(const Canvas& canvas, const std::vector<Tick>& ticks) {
    double width = 0.0;
    for (const Tick& tick : ticks) {
        width = std::max(width, canvas.textWidth(tick.label, tickStyle));
    }
    return width;
}

}  // namespace

double Scale::fraction(double value) const {
    if (logarithmic) {
        return (std::log10(value) - std::log10(low)) / (std::log10(high) - std::log10(low));
    }
    return (value - low) / (high - low);
}

std::vector<Tick> ticksOf(const Scale& scale, int count) {
    return scale.logarithmic ? logarithmicTicks(scale, count) : linearTicks(scale, count);
}

Scale scaleAround(double low, double high) {
    // Below this the ticks of a float's neighbours could no longer be told apart.
    const double smallest = std::max(std::abs(low), std::abs(high)) * 1e-6;
    if (high - low > smallest) {
        return {low, high};
    }
    const double room = low == 0.0 && high == 0.0 ? 1.0 : smallest * 1e5;
    return {low - room, high + room};
}

Rgb mapColour(double fraction) {
    // Every fifteenth entry of the colour map "viridis" (S. van der Walt, N. Smith; CC0), between
    // which straight lines are drawn. Its lightness rises evenly from 15 to 91.
    static constexpr std::array<Rgb, 18> anchors = {{{0x44, 0x01, 0x54},
                                                     {0x48, 0x17, 0x69},
                                                     {0x47, 0x2A, 0x7A},
                                                     {0x43, 0x3D, 0x84},
                                                     {0x3D, 0x4E, 0x8A},
                                                     {0x35, 0x5E, 0x8D},
                                                     {0x2E, 0x6D, 0x8E},
                                                     {0x29, 0x7B, 0x8E},
                                                     {0x23, 0x89, 0x8E},
                                                     {0x1F, 0x97, 0x8B},
                                                     {0x21, 0xA5, 0x85},
                                                     {0x2E, 0xB3, 0x7C},
                                                     {0x46, 0xC0, 0x6F},
                                                     {0x65, 0xCB, 0x5E},
                                                     {0x89, 0xD5, 0x48},
                                                     {0xB0, 0xDD, 0x2F},
                                                     {0xD8, 0xE2, 0x19},
                                                     {0xFD, 0xE7, 0x25}}};
    const double place = std::clamp(fraction, 0.0, 1.0) * (anchors.size() - 1);
    const std::size_t below = std::min(static_cast<std::size_t>(place), anchors.size() - 2);
    const double part = place - static_cast<double>(below);
    const auto mix = [part](std::uint8_t from, std::uint8_t to) {
        return static_cast<std::uint8_t>(std::lround(from + (to - from) * part));
    };
    const Rgb& from = anchors[below];
    const Rgb& to = anchors[below + 1];
    return {mix(from.r, to.r), mix(from.g, to.g), mix(from.b, to.b)};
}

// ----------------------------------------------------------------------------------------- plot --

Plot::Plot(Canvas& canvas, const Rect& cell, PlotFrame frame)
    : canvas_(canvas), frame_(std::move(frame)) {
    layOut(cell);
    drawHead(cell);
    drawAxes();
    if (frame_.colour) {
        drawColourBar();
    }
}

Point Plot::at(double x, double y) const {
    const double right = frame_.x.scale.fraction(x);
    const double down = frame_.y.scale.fraction(y);
    return {area_.x + right * area_.width, frame_.yDownwards
                                               ? area_.y + down * area_.height
                                               : area_.bottom() - down * area_.height};
}

void Plot::layOut(const Rect& cell) {
    const double head = padding + titleHeight + (frame_.note.empty() ? 0.0 : lineHeight) +
                        (frame_.legend.empty() ? 0.0 : lineHeight);
    const double bottom = tickLength + tickGap + textHeight + labelSpace + padding;
    area_.y = cell.y + head;
    area_.height = cell.height - head - bottom;

    const auto ticksFor = [](const Axis& axis, double length, double spacing) {
        return ticksOf(axis.scale, static_cast<int>(length / spacing));
    };
    constexpr double verticalSpacing = 42.0;
    yTicks_ = ticksFor(frame_.y, area_.height, verticalSpacing);
    const double left = padding + labelSpace + widestLabel(canvas_, yTicks_) + tickGap + tickLength;
    double right = padding;
    if (frame_.colour) {
        colourTicks_ = ticksFor(*frame_.colour, area_.height, verticalSpacing);
        right += barGap + barWidth + tickLength + tickGap + widestLabel(canvas_, colourTicks_) +
                 labelSpace;
    } else {
        right += 12.0;  // half a tick label can stand out at the end of the x axis
    }
    area_.x = cell.x + left;
    area_.width = cell.width - left - right;

    if (frame_.squareUnits) {
        const Scale& x = frame_.x.scale;
        const Scale& y = frame_.y.scale;
        const double aspect = (x.high - x.low) / (y.high - y.low);
        const double width = std::min(area_.width, area_.height * aspect);
        const double height = width / aspect;
        // A strip of a few pixels would show nothing; such a map is stretched.
        constexpr double narrowest = 60.0;
        if (width >= narrowest && height >= narrowest) {
            area_.x += (area_.width - width) / 2.0;
            area_.y += (area_.height - height) / 2.0;
            area_.width = width;
            area_.height = height;
            yTicks_ = ticksFor(frame_.y, height, verticalSpacing);
            if (frame_.colour) {
                colourTicks_ = ticksFor(*frame_.colour, height, verticalSpacing);
            }
        }
    }
    // Two passes: how many labels fit depends on how wide they are.
    xTicks_ = ticksFor(frame_.x, area_.width, 40.0);
    xTicks_ = ticksFor(frame_.x, area_.width, std::max(40.0, widestLabel(canvas_, xTicks_) + 18.0));
}

void Plot::drawHead(const Rect& cell) {
    const double x = cell.x + padding;
    const double width = cell.width - 2.0 * padding;
    double y = cell.y + padding + 14.0;
    canvas_.text({x, y}, fitText(canvas_, frame_.title, titleStyle, width), titleStyle);
    y += 4.0;
    if (!frame_.note.empty()) {
        y += lineHeight;
        canvas_.text({x, y}, fitText(canvas_, frame_.note, noteStyle, width), noteStyle);
    }
    if (!frame_.legend.empty()) {
        y += lineHeight;
        double at = x;
        for (const LegendEntry& entry : frame_.legend) {
            canvas_.fill({at, y - 10.0, 11.0, 11.0}, entry.colour);
            at += 16.0;
            canvas_.text({at, y}, entry.label, noteStyle);
            at += canvas_.textWidth(entry.label, noteStyle) + 18.0;
        }
    }
}

void Plot::drawAxes() {
    const double foot = area_.bottom() + tickLength + tickGap + textHeight;
    for (const Tick& tick : xTicks_) {
        const double x = at(tick.value, frame_.y.scale.low).x;
        const Point mark[] = {{x, area_.bottom()}, {x, area_.bottom() + tickLength}};
        canvas_.line(mark, frameColour, 1.0);
        canvas_.text({x, foot}, tick.label, {.size = tickStyle.size, .anchor = Anchor::Middle});
    }
    double widest = 0.0;
    for (const Tick& tick : yTicks_) {
        const double y = at(frame_.x.scale.low, tick.value).y;
        const Point mark[] = {{area_.x - tickLength, y}, {area_.x, y}};
        canvas_.line(mark, frameColour, 1.0);
        canvas_.text({area_.x - tickLength - tickGap, y + textHeight / 2.0}, tick.label,
                     {.size = tickStyle.size, .anchor = Anchor::End});
        widest = std::max(widest, canvas_.textWidth(tick.label, tickStyle));
    }
    canvas_.text({area_.x + area_.width / 2.0, foot + labelSpace - 2.0}, frame_.x.label,
                 labelStyle);
    TextStyle upwards = labelStyle;
    upwards.upwards = true;
    canvas_.text({area_.x - tickLength - tickGap - widest - 7.0, area_.y + area_.height / 2.0},
                 frame_.y.label, upwards);
    const Point outline[] = {
        {area_.x, area_.y},        {area_.right(), area_.y}, {area_.right(), area_.bottom()},
        {area_.x, area_.bottom()}, {area_.x, area_.y},       {area_.right(), area_.y}};
    canvas_.line(outline, frameColour, 1.0);
}

void Plot::drawColourBar() {
    const Rect bar{area_.right() + barGap, area_.y, barWidth, area_.height};
    Raster raster{1, 256, {}};
    for (int i = 0; i < raster.height; ++i) {
        raster.pixels.push_back(mapColour(1.0 - (i + 0.5) / raster.height));
    }
    canvas_.image(bar, raster);
    const Point outline[] = {
        {bar.x, bar.y},        {bar.right(), bar.y}, {bar.right(), bar.bottom()},
        {bar.x, bar.bottom()}, {bar.x, bar.y},       {bar.right(), bar.y}};
    canvas_.line(outline, frameColour, 1.0);
    for (const Tick& tick : colourTicks_) {
        const double y = bar.bottom() - frame_.colour->scale.fraction(tick.value) * bar.height;
        const Point mark[] = {{bar.right(), y}, {bar.right() + tickLength, y}};
        canvas_.line(mark, frameColour, 1.0);
        canvas_.text({bar.right() + tickLength + tickGap, y + textHeight / 2.0}, tick.label,
                     tickStyle);
    }
    TextStyle upwards = labelStyle;
    upwards.upwards = true;
    const double labelAt = bar.right() + tickLength + tickGap + widestLabel(canvas_, colourTicks_);
    canvas_.text({labelAt + 16.0, bar.y + bar.height / 2.0}, frame_.colour->label, upwards);
}

// ----------------------------------------------------------------------------------------- maps --

Raster rasterOf(std::uint32_t columns, std::uint32_t rows,
                const std::function<MapColour(std::uint32_t column, std::uint32_t row)>& colourAt) {
    constexpr std::uint32_t mostOnASide = 1024;
    const std::uint32_t width = std::min(columns, mostOnASide);
    const std::uint32_t height = std::min(rows, mostOnASide);
    const auto begin = [](std::uint32_t cell, std::uint32_t cells, std::uint32_t elements) {
        return static_cast<std::uint32_t>(std::uint64_t{cell} * elements / cells);
    };
    Raster raster{static_cast<int>(width), static_cast<int>(height), {}};
    raster.pixels.reserve(std::size_t{width} * height);
    for (std::uint32_t y = 0; y < height; ++y) {
        const std::uint32_t top = begin(y, height, rows);
        const std::uint32_t bottom = begin(y + 1, height, rows);
        for (std::uint32_t x = 0; x < width; ++x) {
            const std::uint32_t right = begin(x + 1, width, columns);
            MapColour shown = colourAt(begin(x, width, columns), top);
            for (std::uint32_t v = top; v < bottom && !shown.marked; ++v) {
                for (std::uint32_t u = begin(x, width, columns); u < right; ++u) {
                    const MapColour element = colourAt(u, v);
                    if (element.marked) {
                        shown = element;
                        break;
                    }
                }
            }
            raster.pixels.push_back(shown.colour);
        }
    }
    return raster;
}

std::string fitText(const Canvas& canvas, const std::string& text, const TextStyle& style,
                    double width) {
    if (canvas.textWidth(text, style) <= width) {
        return text;
    }
    const auto isContinuation = [&text](std::size_t at) {
        return (static_cast<unsigned char>(text[at]) & 0xC0U) == 0x80U;
    };
    for (std::size_t kept = std::min<std::size_t>(text.size(), 400); kept > 1; --kept) {
        std::size_t head = (kept + 1) / 2;
        std::size_t tail = text.size() - kept / 2;
        while (head > 0 && isContinuation(head)) {
            --head;
        }
        while (tail < text.size() && isContinuation(tail)) {
            ++tail;
        }
        std::string shortened = text.substr(0, head) + "…" + text.substr(tail);
        if (canvas.textWidth(shortened, style) <= width) {
            return shortened;
        }
    }
    return "…";
}

}  // namespace calcut::tools
