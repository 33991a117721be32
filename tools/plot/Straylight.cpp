// Panels of the straylight model: the point spread function and the profile it is made from.
#include <fmt/format.h>
#include <algorithm>
#include <cmath>
#include <limits>
#include <span>
#include <vector>

#include "tools/plot/MapPanel.h"
#include "tools/plot/Panels.h"

namespace calcut::tools {

namespace {

/// A PSF falls by hundreds of decades; more than this of it says nothing about the optics.
constexpr double psfDecades = 12.0;

Scale psfScale(std::span<const float> elements) {
    double low = std::numeric_limits<double>::infinity();
    double high = 0.0;
    for (const float value : elements) {
        if (std::isfinite(value) && value > 0.0F) {
            low = std::min<double>(low, value);
            high = std::max<double>(high, value);
        }
    }
    if (high == 0.0) {
        return {0.1, 1.0, true};
    }
    low = std::max(low, high * std::pow(10.0, -psfDecades));
    return high > low * 1.01 ? Scale{low, high, true} : Scale{low / 2.0, high * 2.0, true};
}

/// Grows with the finite values; a little room stays around them.
Scale roomyScale(std::span<const Point> points, double Point::*coordinate) {
    double low = std::numeric_limits<double>::infinity();
    double high = -low;
    for (const Point& point : points) {
        if (std::isfinite(point.x) && std::isfinite(point.y)) {
            low = std::min(low, point.*coordinate);
            high = std::max(high, point.*coordinate);
        }
    }
    const Scale scale = low > high ? Scale{} : scaleAround(low, high);
    const double room = (scale.high - scale.low) * 0.03;
    return {scale.low - room, scale.high + room};
}

void drawCurve(const Frame& frame, std::span<const Point> points) {
    std::vector<Point> run;
    const auto endRun = [&] {
        if (run.size() > 1) {
            frame.canvas().line(run, curveColour, 2.0);
        }
        run.clear();
    };
    for (const Point& point : points) {
        if (std::isfinite(point.y)) {
            run.push_back(frame.at(point.x, point.y));
        } else {
            endRun();
        }
    }
    endRun();
}

}  // namespace

void drawPsf(Canvas& canvas, const Rect& cell, const Module& module) {
    const std::uint32_t width = std::max(module.record.psfWidth, 1U);
    const std::uint32_t height = std::max(module.record.psfHeight, 1U);
    // Distances wrap around the edges, the origin is element (0, 0): element x up to width / 2
    // stands for the offset x, those behind it count back from the end.
    const std::uint32_t behindX = (width - 1) / 2;
    const std::uint32_t behindY = (height - 1) / 2;
    std::vector<float> centred(std::size_t{width} * height);
    for (std::uint32_t y = 0; y < height; ++y) {
        const float* from = module.record.psf + std::size_t{y} * width;
        const auto row = centred.begin() +
                         static_cast<std::ptrdiff_t>(std::size_t{(y + behindY) % height} * width);
        std::rotate_copy(from, from + (width - behindX), from + width, row);
    }
    Map map;
    map.title = "Straylight PSF";
    map.note = fmt::format("{} x {} elements, the origin in the middle", module.record.psfWidth,
                           module.record.psfHeight);
    map.colourLabel = "PSF element (logarithmic)";
    map.columns = width;
    map.rows = height;
    map.values.values = centred;
    map.scale = psfScale(centred);
    map.columnLabel = "offset x (pixels)";
    map.rowLabel = "offset y (pixels)";
    map.firstColumn = -static_cast<double>(behindX);
    map.firstRow = -static_cast<double>(behindY);
    drawMap(canvas, cell, map);
}

void drawProfile(Canvas& canvas, const Rect& cell, const Module& module) {
    constexpr int samples = 600;
    const VantricCalibration& record = module.record;
    // The origin is among them since the PSF was made.
    const std::uint32_t count =
        std::min<std::uint32_t>(record.straylightPointCount, VANTRIC_STRAYLIGHT_POINTS + 1);
    std::vector<Point> nodes;
    for (std::uint32_t i = 0; i < count; ++i) {
        nodes.push_back({record.straylightRadius[i], record.straylightValue[i]});
    }
    const vantric::PolyOwner curve(
        vantric_createPolyHandle(record.straylightRadius, record.straylightValue, count));
    const Scale across = roomyScale(nodes, &Point::x);
    std::vector<Point> points = nodes;
    for (int i = 0; i <= samples; ++i) {
        const double t = across.low + (across.high - across.low) * i / samples;
        points.push_back({t, vantric_cinterpol(curve.get(), static_cast<float>(t))});
    }
    FrameText text{.title = "Straylight profile"};
    text.note =
        fmt::format("PSF = {:.4g} exp(-g), {:.4g}-norm radius; offset {:.4g}, centre {:.4g}",
                    record.straylightScale, record.straylightExponent, record.straylightOffset,
                    record.straylightCentre);
    text.legend = {{Mark::Dot, inkColour, "nodes, with the origin"},
                   {Mark::Line, curveColour, "interpolated"}};
    const Frame frame(canvas, cell, std::move(text), {across, "radius (PSF elements)"},
                      {roomyScale(points, &Point::y), "exponent g"});
    canvas.beginClip(frame.area());
    drawCurve(frame, std::span(points).subspan(nodes.size()));
    for (const Point& node : nodes) {
        if (std::isfinite(node.x) && std::isfinite(node.y)) {
            canvas.mark(Mark::Dot, frame.at(node.x, node.y), inkColour);
        }
    }
    canvas.endClip();
}

}  // namespace calcut::tools
