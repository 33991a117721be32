#include "tools/plot/Scales.h"

#include <fmt/format.h>
#include <algorithm>
#include <cmath>
#include <span>

namespace calcut::plot {

namespace {

/// Every fifteenth entry of the colour map "viridis" (S. van der Walt, N. Smith; CC0). Its
/// lightness rises evenly from 15 to 91.
constexpr Rgb viridis[] = {{0x44, 0x01, 0x54}, {0x48, 0x17, 0x69}, {0x47, 0x2A, 0x7A},
                           {0x43, 0x3D, 0x84}, {0x3D, 0x4E, 0x8A}, {0x35, 0x5E, 0x8D},
                           {0x2E, 0x6D, 0x8E}, {0x29, 0x7B, 0x8E}, {0x23, 0x89, 0x8E},
                           {0x1F, 0x97, 0x8B}, {0x21, 0xA5, 0x85}, {0x2E, 0xB3, 0x7C},
                           {0x46, 0xC0, 0x6F}, {0x65, 0xCB, 0x5E}, {0x89, 0xD5, 0x48},
                           {0xB0, 0xDD, 0x2F}, {0xD8, 0xE2, 0x19}, {0xFD, 0xE7, 0x25}};
/// The part in use, of lightness 19 to 84.
constexpr double viridisBegin = 0.05;
constexpr double viridisEnd = 0.89;

/// Straight lines in CIELAB from blue (lightness 34, chroma 50, hue 286 degrees) over grey of
/// lightness 83.5 to red (34, 56, 45).
constexpr Rgb blueToRed[] = {{0x19, 0x4D, 0x9D}, {0x3E, 0x5C, 0xA4}, {0x57, 0x6B, 0xAA},
                             {0x6E, 0x7B, 0xB1}, {0x82, 0x8B, 0xB7}, {0x96, 0x9C, 0xBE},
                             {0xAA, 0xAD, 0xC4}, {0xBD, 0xBE, 0xCA}, {0xD0, 0xD0, 0xD0},
                             {0xCC, 0xBC, 0xB6}, {0xC7, 0xA7, 0x9D}, {0xC1, 0x93, 0x84},
                             {0xB9, 0x80, 0x6C}, {0xB0, 0x6C, 0x54}, {0xA7, 0x58, 0x3E},
                             {0x9C, 0x44, 0x27}, {0x90, 0x2F, 0x10}};

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

}  // namespace

Rgb mapColour(ColourMap map, double fraction) {
    const bool sequential = map == ColourMap::Sequential;
    const auto anchors =
        sequential ? std::span<const Rgb>(viridis) : std::span<const Rgb>(blueToRed);
    const double cut = std::clamp(fraction, 0.0, 1.0);
    const double place = (sequential ? viridisBegin + (viridisEnd - viridisBegin) * cut : cut) *
                         static_cast<double>(anchors.size() - 1);
    const std::size_t below = std::min(static_cast<std::size_t>(place), anchors.size() - 2);
    const auto mix = [&](std::uint8_t Rgb::*part) {
        const int from = anchors[below].*part;
        const int to = anchors[below + 1].*part;
        return static_cast<std::uint8_t>(
            std::lround(from + (to - from) * (place - static_cast<double>(below))));
    };
    return {mix(&Rgb::r), mix(&Rgb::g), mix(&Rgb::b)};
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

std::vector<Tick> ticksOf(const Scale& scale, int count) {
    const double range = scale.high - scale.low;
    const double least = range / std::max(count, 1);
    double step = roundStep(scale.whole ? std::max(least, 1.0) : least);
    // A single tick says nothing.
    if (step > range / 2.0 && !(scale.whole && step <= 1.0)) {
        step = roundStep(range / 4.0);
    }
    const double largest = std::max(std::abs(scale.low), std::abs(scale.high));
    const double first = std::ceil(scale.low / step - 1e-6);
    constexpr double mostTicks = 100.0;
    const double steps = std::min(std::floor(scale.high / step + 1e-6) - first, mostTicks);
    std::vector<Tick> ticks;
    for (int i = 0; i <= static_cast<int>(steps); ++i) {
        const double value = first + i == 0.0 ? 0.0 : (first + i) * step;
        ticks.push_back({value, tickLabel(value, step, largest)});
    }
    return ticks;
}

bool needsStrips(std::uint32_t columns, std::uint32_t rows) {
    constexpr std::uint32_t longestAspect = 12;
    return std::max(columns, rows) / longestAspect > std::min(columns, rows);
}

Strips stripsFor(std::uint32_t columns, std::uint32_t rows, double width, double height) {
    constexpr std::uint32_t mostStrips = 60;
    const bool tall = rows > columns;
    const std::uint32_t longSide = std::max(columns, rows);
    const std::uint32_t shortSide = std::min(columns, rows);
    const std::uint32_t most = needsStrips(columns, rows) ? std::min(mostStrips, longSide) : 1;
    Strips best;
    for (std::uint32_t parts = 1; parts <= most; ++parts) {
        Strips strips{.alongRows = tall, .length = (longSide + parts - 1) / parts};
        strips.count = (longSide + strips.length - 1) / strips.length;
        // Strips are as far apart as they are thick.
        strips.unit = std::min((tall ? height : width) / strips.length,
                               (tall ? width : height) / shortSide / (2.0 * strips.count - 1.0));
        // Every element gets as many dots of the screen as any other.
        strips.unit = strips.unit > 1.0 ? std::floor(strips.unit) : strips.unit;
        if (strips.unit > best.unit) {
            best = strips;
        }
    }
    best.pitch = 2.0 * shortSide * best.unit;
    best.width = best.length * best.unit;
    best.height = (best.count - 1) * best.pitch + shortSide * best.unit;
    if (tall) {
        std::swap(best.width, best.height);
    }
    return best;
}

}  // namespace calcut::plot
