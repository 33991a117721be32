// Panels of the straylight model: the point spread function and the profile it is made from.
#include <fmt/format.h>
#include <algorithm>
#include <cmath>

#include "tools/plot/Panels.h"

namespace calcut::tools {

namespace {

/// Finite values of one coordinate with a little room around them.
Scale roomyScale(std::span<const Point> points, double Point::*coordinate) {
    double low = Statistics::none;
    double high = Statistics::none;
    for (const Point& point : points) {
        if (std::isfinite(point.*coordinate)) {
            low = std::fmin(low, point.*coordinate);
            high = std::fmax(high, point.*coordinate);
        }
    }
    const Scale scale = std::isnan(low) ? Scale{} : scaleAround(low, high);
    const double room = (scale.high - scale.low) * 0.03;
    return {scale.low - room, scale.high + room};
}

bool isFinite(Point point) {
    return std::isfinite(point.x) && std::isfinite(point.y);
}

}  // namespace

void drawPsf(const Cell& cell, const Diagnosis& module) {
    const VantricCalibration& record = *module.record;
    const std::uint32_t width = std::max(record.psfWidth, 1U);
    const std::uint32_t height = std::max(record.psfHeight, 1U);
    const std::span psf(record.psf, std::size_t{width} * height);
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
    // It falls by hundreds of decades; more than this says nothing about the optics.
    constexpr double shown = 12.0;
    const Statistics decades = statisticsOf({centred});
    const Scale scale = decades.count == 0
                            ? Scale{}
                            : scaleAround(std::max(decades.min, decades.max - shown), decades.max);
    drawMap(cell,
            {.title = "Straylight PSF",
             .note = fmt::format("{} x {} elements, the origin in the middle", record.psfWidth,
                                 record.psfHeight),
             .footer = statisticsText(statisticsOf({psf})),
             .x = elementAxis(width, "offset x (pixels)", -static_cast<double>(behindX)),
             .y = elementAxis(height, "offset y (pixels)", -static_cast<double>(behindY)),
             .image = true,
             .bar = ColourBar{{scale, "log10 of the element"}}},
            {centred});
}

void drawProfile(const Cell& cell, const Diagnosis& module) {
    constexpr int samples = 600;
    const VantricCalibration& record = *module.record;
    // The origin is among them since the PSF was made.
    const std::uint32_t count =
        std::min<std::uint32_t>(record.straylightPointCount, VANTRIC_STRAYLIGHT_POINTS + 1);
    std::vector<Point> points;
    for (std::uint32_t i = 0; i < count; ++i) {
        points.push_back({record.straylightRadius[i], record.straylightValue[i]});
    }
    const vantric::PolyOwner curve(
        vantric_createPolyHandle(record.straylightRadius, record.straylightValue, count));
    const Scale across = roomyScale(points, &Point::x);
    for (int i = 0; i <= samples; ++i) {
        const double t = across.low + (across.high - across.low) * i / samples;
        points.push_back({t, vantric_cinterpol(curve.get(), static_cast<float>(t))});
    }
    const Frame frame(
        cell, {.title = "Straylight profile",
               .note = fmt::format(
                   "PSF = {:.4g} exp(-g), {:.4g}-norm radius; offset {:.4g}, centre {:.4g}",
                   record.straylightScale, record.straylightExponent, record.straylightOffset,
                   record.straylightCentre),
               .legend = {{Mark::Dot, inkColour, "nodes, with the origin"},
                          {Mark::Box, curveColour, "interpolated"}},
               .x = {across, "radius (PSF elements)"},
               .y = {roomyScale(points, &Point::y), "exponent g"}});
    std::transform(points.begin(), points.end(), points.begin(),
                   [&frame](Point point) { return frame.at(point.x, point.y); });
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

}  // namespace calcut::tools
