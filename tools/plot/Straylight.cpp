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

/// Finite values of one coordinate with a little room around them.
Scale roomyScale(std::span<const Point> points, double Point::*coordinate) {
    double low = std::numeric_limits<double>::infinity();
    double high = -low;
    for (const Point& point : points) {
        if (std::isfinite(point.*coordinate)) {
            low = std::min(low, point.*coordinate);
            high = std::max(high, point.*coordinate);
        }
    }
    const Scale scale = low > high ? Scale{} : scaleAround(low, high);
    const double room = (scale.high - scale.low) * 0.03;
    return {scale.low - room, scale.high + room};
}

}  // namespace

void drawPsf(Canvas& canvas, const Rect& cell, const Module& module) {
    const std::uint32_t width = std::max(module.record.psfWidth, 1U);
    const std::uint32_t height = std::max(module.record.psfHeight, 1U);
    const std::span psf(module.record.psf, std::size_t{width} * height);
    // Distances wrap around the edges, the origin is element (0, 0): element x up to width / 2
    // stands for the offset x, those behind it count back from the end.
    const std::uint32_t behindX = (width - 1) / 2;
    const std::uint32_t behindY = (height - 1) / 2;
    std::vector<float> centred;
    centred.reserve(psf.size());
    for (std::uint32_t row = 0; row < height; ++row) {
        const std::size_t y = (row + height - behindY) % height;
        for (std::uint32_t column = 0; column < width; ++column) {
            centred.push_back(std::log10(psf[y * width + (column + width - behindX) % width]));
        }
    }
    Map map;
    map.title = "Straylight PSF";
    map.note = fmt::format("{} x {} elements, the origin in the middle", module.record.psfWidth,
                           module.record.psfHeight);
    map.colourLabel = "log10 of the element";
    map.shape = {width,
                 height,
                 "offset x (pixels)",
                 "offset y (pixels)",
                 -static_cast<double>(behindX),
                 -static_cast<double>(behindY)};
    map.values.values = centred;
    const Statistics decades = statisticsOf(map.values);
    map.scale = decades.count == 0
                    ? Scale{}
                    : scaleAround(std::max(decades.min, decades.max - psfDecades), decades.max);
    map.footer = statisticsText(statisticsOf({psf, {}}));
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
    std::vector<Point> points;
    for (int i = 0; i <= samples; ++i) {
        const double t = across.low + (across.high - across.low) * i / samples;
        points.push_back({t, vantric_cinterpol(curve.get(), static_cast<float>(t))});
    }
    points.insert(points.end(), nodes.begin(), nodes.end());
    const Frame frame(
        canvas, cell,
        {"Straylight profile",
         fmt::format("PSF = {:.4g} exp(-g), {:.4g}-norm radius; offset {:.4g}, centre {:.4g}",
                     record.straylightScale, record.straylightExponent, record.straylightOffset,
                     record.straylightCentre),
         {{Mark::Dot, inkColour, "nodes, with the origin"},
          {Mark::Box, curveColour, "interpolated"}},
         ""},
        {across, "radius (PSF elements)"}, {roomyScale(points, &Point::y), "exponent g"});
    points.resize(points.size() - nodes.size());
    for (std::size_t i = 1; i < points.size(); ++i) {
        const Point segment[] = {frame.at(points[i - 1].x, points[i - 1].y),
                                 frame.at(points[i].x, points[i].y)};
        if (std::isfinite(segment[0].y) && std::isfinite(segment[1].y)) {
            canvas.line(segment, curveColour, 2.0);
        }
    }
    for (const Point& node : nodes) {
        if (std::isfinite(node.x) && std::isfinite(node.y)) {
            canvas.mark(Mark::Dot, frame.at(node.x, node.y), inkColour);
        }
    }
}

}  // namespace calcut::tools
