#include "Sheet.h"

#include <fmt/format.h>
#include <algorithm>
#include <cmath>
#include <functional>
#include <limits>
#include <memory>
#include <numbers>

#include "SheetCanvas.h"
#include "SheetPlot.h"

namespace calcut::tools {

namespace {

// None of these occurs in the colour map.
constexpr Rgb maskedColour{0xFF, 0x2D, 0x9B};
constexpr Rgb invalidColour{0x9A, 0x9A, 0x9A};
constexpr Rgb validColour{0x2E, 0x6D, 0x8E};
constexpr Rgb inkColour{0x20, 0x20, 0x20};
constexpr Rgb faultColour{0xC0, 0x10, 0x10};
constexpr Rgb paperColour{0xFF, 0xFF, 0xFF};

/// A PSF falls by hundreds of decades; more than this of it says nothing about the optics.
constexpr double psfDecades = 12.0;

class Sheet {
  public:
    Sheet(const CalibrationReport& report, Canvas& canvas)
        : report_(report), record_(*report.record), canvas_(canvas) {}

    void drawText(const Rect& cell);
    void drawMask(const Rect& cell);
    void drawPixelMap(const Rect& cell, const std::string& title, const float* values);
    void drawRays(const Rect& cell);
    void drawPsf(const Rect& cell);
    void drawProfile(const Rect& cell);

  private:
    [[nodiscard]] std::size_t pixel(std::uint32_t column, std::uint32_t row) const {
        return std::size_t{row} * record_.columns + column;
    }
    [[nodiscard]] bool masked(std::size_t at) const {
        return record_.pixelMask != nullptr && record_.pixelMask[at] == 0;
    }
    /// Frame of a map over the sensor. Pixel centres have whole coordinates.
    [[nodiscard]] PlotFrame sensorFrame(const std::string& title) const;
    /// Fills frame and cell with one value per pixel, and returns the plot for what goes on top.
    Plot drawSensorMap(const Rect& cell, PlotFrame frame, const std::string& colourLabel,
                       const std::function<float(std::size_t)>& valueAt);
    void drawDistortion(const Plot& plot, double step, double magnification);
    void drawArrow(Point from, Point to);
    void ringLonePixels(const Plot& plot);
    /// From the pixel to where a pinhole without distortion sees the pixel's ray, in pixels.
    [[nodiscard]] Point displacement(std::uint32_t column, std::uint32_t row) const;

    const CalibrationReport& report_;
    const RecordReport& record_;
    Canvas& canvas_;
};

/// Range of the finite values among count.
struct FiniteRange {
    double low = std::numeric_limits<double>::infinity();
    double high = -std::numeric_limits<double>::infinity();

    void add(double value) {
        if (std::isfinite(value)) {
            low = std::min(low, value);
            high = std::max(high, value);
        }
    }
    [[nodiscard]] bool empty() const { return low > high; }
    [[nodiscard]] Scale scale() const { return empty() ? Scale{} : scaleAround(low, high); }
};

/// A plain factor at most limit: one digit times a power of ten.
double roundFactor(double limit) {
    const double power = std::pow(10.0, std::floor(std::log10(limit)));
    return power * std::floor(limit / power * (1.0 + 1e-12));
}

PlotFrame Sheet::sensorFrame(const std::string& title) const {
    PlotFrame frame;
    frame.title = title;
    frame.x = {{-0.5, record_.columns - 0.5, false, true}, "column (pixels)"};
    frame.y = {{-0.5, record_.rows - 0.5, false, true}, "row (pixels)"};
    frame.yDownwards = true;
    frame.squareUnits = true;
    return frame;
}

Plot Sheet::drawSensorMap(const Rect& cell, PlotFrame frame, const std::string& colourLabel,
                          const std::function<float(std::size_t)>& valueAt) {
    const std::size_t pixels = std::size_t{record_.columns} * record_.rows;
    FiniteRange range;
    std::size_t invalid = 0;
    for (std::size_t at = 0; at < pixels; ++at) {
        if (!masked(at)) {
            const float value = valueAt(at);
            range.add(value);
            invalid += std::isfinite(value) ? 0 : 1;
        }
    }
    const Scale scale = range.scale();
    if (!range.empty()) {
        frame.colour = {scale, colourLabel};
    }
    if (record_.maskedPixels > 0) {
        frame.legend.push_back({maskedColour, "masked"});
    }
    if (invalid > 0) {
        frame.legend.push_back({invalidColour, fmt::format("not finite ({})", invalid)});
    }
    Plot plot(canvas_, cell, std::move(frame));
    canvas_.image(plot.area(), rasterOf(record_.columns, record_.rows,
                                        [&](std::uint32_t column, std::uint32_t row) -> MapColour {
                                            const std::size_t at = pixel(column, row);
                                            if (masked(at)) {
                                                return {maskedColour, true};
                                            }
                                            const float value = valueAt(at);
                                            if (!std::isfinite(value)) {
                                                return {invalidColour, true};
                                            }
                                            return {mapColour(scale.fraction(value))};
                                        }));
    return plot;
}

/// A single masked pixel is hardly larger than a dot of the screen: ring it.
void Sheet::ringLonePixels(const Plot& plot) {
    constexpr double visible = 4.0;
    constexpr int mostRings = 200;
    constexpr double radius = 6.0;
    if (plot.at(1.0, 0.0).x - plot.at(0.0, 0.0).x >= visible) {
        return;
    }
    const auto isMasked = [this](std::int64_t column, std::int64_t row) {
        return column >= 0 && row >= 0 && column < record_.columns && row < record_.rows &&
               masked(pixel(static_cast<std::uint32_t>(column), static_cast<std::uint32_t>(row)));
    };
    std::vector<Point> lone;
    for (std::int64_t row = 0; row < record_.rows; ++row) {
        for (std::int64_t column = 0; column < record_.columns; ++column) {
            if (isMasked(column, row) && !isMasked(column - 1, row) && !isMasked(column + 1, row) &&
                !isMasked(column, row - 1) && !isMasked(column, row + 1)) {
                lone.push_back(plot.at(static_cast<double>(column), static_cast<double>(row)));
            }
        }
    }
    // A sprinkled mask shows itself.
    if (lone.size() > mostRings) {
        return;
    }
    canvas_.beginClip(plot.area());
    for (const Point& centre : lone) {
        std::vector<Point> ring;
        for (int i = 0; i <= 24; ++i) {
            const double angle = 2.0 * std::numbers::pi * i / 24;
            ring.push_back(
                {centre.x + radius * std::cos(angle), centre.y + radius * std::sin(angle)});
        }
        canvas_.line(ring, maskedColour, 1.5);
    }
    canvas_.endClip();
}

void Sheet::drawMask(const Rect& cell) {
    const std::size_t pixels = std::size_t{record_.columns} * record_.rows;
    const std::uint8_t* mask = record_.pixelMask;
    const std::uint8_t highest = *std::max_element(mask, mask + pixels);
    PlotFrame frame = sensorFrame("Pixel mask");
    frame.legend = {{maskedColour, fmt::format("masked, 0 ({})", record_.maskedPixels)}};
    const Scale scale{1.0, static_cast<double>(highest), false, true};
    if (highest > 1) {
        frame.colour = {scale, "mask value"};
    } else {
        frame.legend.push_back(
            {validColour, fmt::format("valid, 1 ({})", pixels - record_.maskedPixels)});
    }
    const Plot plot(canvas_, cell, std::move(frame));
    canvas_.image(plot.area(), rasterOf(record_.columns, record_.rows,
                                        [&](std::uint32_t column, std::uint32_t row) -> MapColour {
                                            const std::size_t at = pixel(column, row);
                                            if (masked(at)) {
                                                return {maskedColour, true};
                                            }
                                            return {highest > 1
                                                        ? mapColour(scale.fraction(mask[at]))
                                                        : validColour};
                                        }));
    ringLonePixels(plot);
}

void Sheet::drawPixelMap(const Rect& cell, const std::string& title, const float* values) {
    drawSensorMap(cell, sensorFrame(title), "value (unit not recorded)",
                  [values](std::size_t at) { return values[at]; });
}

// ----------------------------------------------------------------------------------- ray field --

Point Sheet::displacement(std::uint32_t column, std::uint32_t row) const {
    const float* ray = record_.directions + 3 * pixel(column, row);
    const auto& lens = *record_.lens;
    const double x = double{lens[0]} * ray[0] / ray[2] + lens[2];
    const double y = double{lens[1]} * ray[1] / ray[2] + lens[3];
    return {x - column, y - row};
}

void Sheet::drawArrow(Point from, Point to) {
    constexpr double headLength = 6.0;
    constexpr double headAngle = 0.45;
    const double angle = std::atan2(to.y - from.y, to.x - from.x);
    const double length = std::min(headLength, std::hypot(to.x - from.x, to.y - from.y));
    const auto barb = [&](double turn) {
        return Point{to.x - length * std::cos(angle + turn),
                     to.y - length * std::sin(angle + turn)};
    };
    const Point shaft[] = {from, to};
    const Point head[] = {barb(headAngle), to, barb(-headAngle)};
    // A dark edge keeps the arrow visible on light colours.
    canvas_.circle(from, 2.2, inkColour);
    canvas_.line(shaft, inkColour, 3.0);
    canvas_.line(head, inkColour, 3.0);
    canvas_.circle(from, 1.4, paperColour);
    canvas_.line(shaft, paperColour, 1.4);
    canvas_.line(head, paperColour, 1.4);
}

void Sheet::drawDistortion(const Plot& plot, double step, double magnification) {
    canvas_.beginClip(plot.area());
    const auto across = static_cast<std::uint32_t>(std::max(1.0, record_.columns / step));
    const auto down = static_cast<std::uint32_t>(std::max(1.0, record_.rows / step));
    for (std::uint32_t j = 0; j < down; ++j) {
        for (std::uint32_t i = 0; i < across; ++i) {
            const std::uint32_t column = (2 * i + 1) * record_.columns / (2 * across);
            const std::uint32_t row = (2 * j + 1) * record_.rows / (2 * down);
            const Point moved = displacement(column, row);
            if (std::isfinite(moved.x) && std::isfinite(moved.y)) {
                drawArrow(plot.at(column, row),
                          plot.at(column + magnification * moved.x, row + magnification * moved.y));
            }
        }
    }
    canvas_.endClip();
}

void Sheet::drawRays(const Rect& cell) {
    const float* directions = record_.directions;
    const auto angleAt = [directions](std::size_t at) {
        const float* ray = directions + 3 * at;
        return static_cast<float>(std::atan2(std::hypot(ray[0], ray[1]), ray[2]) * 180.0 /
                                  std::numbers::pi);
    };
    double longest = 0.0;
    for (std::uint32_t row = 0; row < record_.rows; ++row) {
        for (std::uint32_t column = 0; column < record_.columns; ++column) {
            const Point moved = displacement(column, row);
            const double length = std::hypot(moved.x, moved.y);
            if (std::isfinite(length)) {
                longest = std::max(longest, length);
            }
        }
    }
    // About a dozen arrows across, none much longer than half the way to its neighbour.
    const double step = std::max(1.0, std::max(record_.columns, record_.rows) / 12.0);
    constexpr double leastDistortion = 1e-3;  // pixels
    const double magnification =
        longest > leastDistortion ? roundFactor(std::max(0.7 * step / longest, 1e-6)) : 0.0;
    PlotFrame frame = sensorFrame("Ray directions");
    frame.note = magnification > 0.0
                     ? fmt::format(
                           "arrows: to the same ray of a pinhole without distortion, "
                           "{:.3g}x (longest {:.3g} px)",
                           magnification, longest)
                     : "no distortion: every ray is that of a pinhole";
    const Plot plot =
        drawSensorMap(cell, std::move(frame), "angle from the optical axis (degrees)", angleAt);
    if (magnification > 0.0) {
        drawDistortion(plot, step, magnification);
    }
}

// ---------------------------------------------------------------------------------- straylight --

void Sheet::drawPsf(const Rect& cell) {
    const std::uint32_t width = record_.straylight->psfWidth;
    const std::uint32_t height = record_.straylight->psfHeight;
    const float* psf = record_.psf;
    PlotFrame frame;
    frame.title = "Straylight PSF";
    if (width == 0 || height == 0) {
        frame.note = fmt::format("{} x {} elements: nothing to draw", width, height);
        const Plot plot(canvas_, cell, std::move(frame));
        return;
    }
    const std::size_t elements = std::size_t{width} * height;
    double low = std::numeric_limits<double>::infinity();
    double high = 0.0;
    std::size_t dark = 0;
    for (std::size_t at = 0; at < elements; ++at) {
        const double value = psf[at];
        if (std::isfinite(value) && value > 0.0) {
            low = std::min(low, value);
            high = std::max(high, value);
        } else {
            ++dark;
        }
    }
    if (high == 0.0) {
        low = 0.1;
        high = 1.0;
    }
    const double floor = high * std::pow(10.0, -psfDecades);
    Scale scale{std::max(low, floor), high, true};
    if (scale.high <= scale.low * 1.01) {
        scale = {scale.low / 2.0, scale.high * 2.0, true};
    }
    // Distances wrap around the edges, the origin is element (0, 0): element x up to width / 2
    // stands for the offset x, those behind it count back from the end.
    const std::uint32_t aheadX = width / 2;
    const std::uint32_t aheadY = height / 2;
    const std::uint32_t behindX = width - 1 - aheadX;
    const std::uint32_t behindY = height - 1 - aheadY;
    frame.x = {{-static_cast<double>(behindX) - 0.5, aheadX + 0.5, false, true},
               "offset x (pixels)"};
    frame.y = {{-static_cast<double>(behindY) - 0.5, aheadY + 0.5, false, true},
               "offset y (pixels)"};
    frame.yDownwards = true;
    frame.squareUnits = true;
    frame.colour = {scale, "PSF element (logarithmic)"};
    if (low < floor) {
        frame.note = fmt::format("smaller values, down to {:.2g}, share the lowest colour", low);
    }
    if (dark > 0) {
        frame.legend.push_back({invalidColour, fmt::format("zero or below ({})", dark)});
    }
    const Plot plot(canvas_, cell, std::move(frame));
    canvas_.image(
        plot.area(),
        rasterOf(width, height, [&](std::uint32_t column, std::uint32_t row) -> MapColour {
            const std::uint32_t x = (column + width - behindX) % width;
            const std::uint32_t y = (row + height - behindY) % height;
            const double value = psf[std::size_t{y} * width + x];
            if (!(std::isfinite(value) && value > 0.0)) {
                return {invalidColour};
            }
            return {mapColour(scale.fraction(value))};
        }));
}

struct PolyDeleter {
    void operator()(VantricPoly* handle) const { vantric_freePoly(handle); }
};

void Sheet::drawProfile(const Rect& cell) {
    // The curve that the PSF is made from: an origin point, then the stored nodes.
    std::vector<float> radius{0.0F};
    std::vector<float> value{0.0F};
    radius.insert(radius.end(), record_.straylight->radius.begin(),
                  record_.straylight->radius.end());
    value.insert(value.end(), record_.straylight->value.begin(), record_.straylight->value.end());
    const std::unique_ptr<VantricPoly, PolyDeleter> curve(vantric_createPolyHandle(
        radius.data(), value.data(), static_cast<std::uint32_t>(radius.size())));

    FiniteRange across;
    FiniteRange up;
    for (std::size_t i = 0; i < radius.size(); ++i) {
        across.add(radius[i]);
        up.add(value[i]);
    }
    const Scale nodes = across.scale();
    constexpr int samples = 600;
    std::vector<Point> points;
    for (int i = 0; i <= samples; ++i) {
        const double t = nodes.low + (nodes.high - nodes.low) * i / samples;
        const double g = vantric_cinterpol(curve.get(), static_cast<float>(t));
        up.add(g);
        points.push_back({t, g});
    }
    // Room around the outer nodes, so that their dots are not cut.
    const auto roomy = [](Scale scale) {
        const double room = (scale.high - scale.low) * 0.03;
        return Scale{scale.low - room, scale.high + room};
    };
    PlotFrame frame;
    frame.title = "Straylight profile";
    frame.note =
        fmt::format("PSF = {:.4g} exp(-g), {:.4g}-norm radius; offset {:.4g}, centre {:.4g}",
                    record_.straylight->scale, record_.straylight->exponent,
                    record_.straylight->offset, record_.straylight->centre);
    frame.x = {roomy(nodes), "radius (PSF elements)"};
    frame.y = {roomy(up.scale()), "exponent g"};
    frame.legend = {{maskedColour, "nodes (with the origin)"}, {validColour, "interpolated"}};
    const Plot plot(canvas_, cell, std::move(frame));

    canvas_.beginClip(plot.area());
    std::vector<Point> run;
    const auto endRun = [&] {
        if (run.size() > 1) {
            canvas_.line(run, validColour, 2.0);
        }
        run.clear();
    };
    for (const Point& point : points) {
        if (std::isfinite(point.y)) {
            run.push_back(plot.at(point.x, point.y));
        } else {
            endRun();
        }
    }
    endRun();
    for (std::size_t i = 0; i < radius.size(); ++i) {
        if (std::isfinite(radius[i]) && std::isfinite(value[i])) {
            canvas_.circle(plot.at(radius[i], value[i]), 4.0, maskedColour);
        }
    }
    canvas_.endClip();
}

// ---------------------------------------------------------------------------------------- text --

void Sheet::drawText(const Rect& cell) {
    const TextStyle title{.size = 17.0, .bold = true};
    const TextStyle body{.size = 13.0};
    const double left = cell.x + 12.0;
    const double width = cell.width - 24.0;
    const auto put = [&](double x, double y, const std::string& text, const TextStyle& style) {
        canvas_.text({x, y}, fitText(canvas_, text, style, cell.right() - 12.0 - x), style);
    };
    double y = cell.y + 28.0;
    const std::size_t slash = report_.path.find_last_of('/');
    const std::string name = report_.path == "-" ? "standard input"
                                                 : escapePath(slash == std::string::npos
                                                                  ? report_.path
                                                                  : report_.path.substr(slash + 1));
    put(left, y, name, title);
    // With many frequencies the lines move closer together instead of out of the cell.
    const std::size_t lines = 12 + record_.frequencies.size() + report_.faults.size();
    const double spacing = std::min(20.0, (cell.height - 44.0) / static_cast<double>(lines));
    const auto line = [&](const std::string& text, const TextStyle& style) {
        y += spacing;
        put(left, y, text, style);
    };
    const Layout layout = report_.image.layout;
    line(fmt::format("{}, {} bytes",
                     layout == Layout::Packed ? "packed calibration"
                                              : fmt::format("{} image", layoutName(layout)),
                     report_.file.size()),
         body);
    for (const Fault& fault : report_.faults) {
        line(fmt::format("{} at byte {}", fault.what, fault.offset),
             {.size = 13.0, .bold = true, .colour = faultColour});
    }
    const std::uint64_t pixels = std::uint64_t{record_.columns} * record_.rows;
    line(fmt::format(
             "{} x {} pixels, {} masked ({:.2f} %)", record_.columns, record_.rows,
             record_.maskedPixels,
             100.0 * static_cast<double>(record_.maskedPixels) / static_cast<double>(pixels)),
         body);
    std::string texts;
    for (const auto* text : {&record_.text1, &record_.text2}) {
        if (text->has_value() && !(*text)->empty()) {
            texts += (texts.empty() ? "" : "  ·  ") + escapeBytes(**text);
        }
    }
    if (!texts.empty()) {
        line(texts, body);
    }
    y += spacing * 0.4;
    // Lens parameters in two columns: lengths in pixels, and the distortion.
    const auto& lens = *record_.lens;
    const double column = left + width * 0.5;
    for (std::size_t i = 0; i < 5; ++i) {
        y += spacing;
        if (i < 4) {
            put(left, y, fmt::format("{}  {} pixels", lensParameterNames[i], lens[i]), body);
        }
        put(column, y, fmt::format("{}  {}", lensParameterNames[i + 4], lens[i + 4]), body);
    }
    y += spacing * 0.4;
    for (const FrequencyReport& frequency : record_.frequencies) {
        line(fmt::format("frequency {}:  id {}{}", frequency.index, frequency.id,
                         frequency.scalar ? fmt::format(", scalar {}", *frequency.scalar) : ""),
             body);
    }
    y += spacing * 0.4;
    line(record_.straylight
             ? fmt::format("straylight:  PSF {} x {}, {} profile points",
                           record_.straylight->psfWidth, record_.straylight->psfHeight,
                           record_.straylight->radius.size())
             : "no straylight model",
         body);
}

/// Cells of the sheet: fewest empty ones at a shape that suits a screen.
struct Grid {
    std::size_t columns;
    std::size_t rows;
    double cellWidth;
    double cellHeight;
};

Grid gridFor(std::size_t panels) {
    if (panels <= 6 || panels == 9) {
        return {3, (panels + 2) / 3, 600.0, 400.0};
    }
    return {4, (panels + 3) / 4, 480.0, 380.0};
}

}  // namespace

std::vector<std::uint8_t> drawSheet(const CalibrationReport& report, SheetFormat format) {
    const RecordReport& record = *report.record;
    using Draw = std::function<void(Sheet&, const Rect&)>;
    std::vector<Draw> panels;
    panels.emplace_back([](Sheet& sheet, const Rect& cell) { sheet.drawText(cell); });
    panels.emplace_back([](Sheet& sheet, const Rect& cell) { sheet.drawMask(cell); });
    panels.emplace_back([](Sheet& sheet, const Rect& cell) { sheet.drawRays(cell); });
    panels.emplace_back([&record](Sheet& sheet, const Rect& cell) {
        sheet.drawPixelMap(cell, "Pixel values", record.pixelValues);
    });
    for (const FrequencyReport& frequency : record.frequencies) {
        panels.emplace_back([&frequency](Sheet& sheet, const Rect& cell) {
            sheet.drawPixelMap(
                cell,
                fmt::format("Frequency {} (id {}): pixel table", frequency.index, frequency.id),
                frequency.pixelTable);
        });
    }
    if (record.psf != nullptr) {
        panels.emplace_back([](Sheet& sheet, const Rect& cell) { sheet.drawPsf(cell); });
        panels.emplace_back([](Sheet& sheet, const Rect& cell) { sheet.drawProfile(cell); });
    }

    const Grid grid = gridFor(panels.size());
    const double width = grid.cellWidth * static_cast<double>(grid.columns);
    const double height = grid.cellHeight * static_cast<double>(grid.rows);
    const std::unique_ptr<Canvas> canvas =
        format == SheetFormat::Png ? makePngCanvas(width, height) : makeSvgCanvas(width, height);
    Sheet sheet(report, *canvas);
    for (std::size_t i = 0; i < panels.size(); ++i) {
        const std::size_t column = i % grid.columns;
        const std::size_t row = i / grid.columns;
        panels[i](sheet,
                  {grid.cellWidth * static_cast<double>(column),
                   grid.cellHeight * static_cast<double>(row), grid.cellWidth, grid.cellHeight});
    }
    return canvas->finish();
}

}  // namespace calcut::tools
