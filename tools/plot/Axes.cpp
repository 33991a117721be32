#include "tools/plot/Axes.h"

#include <fmt/format.h>
#include <algorithm>
#include <cmath>

namespace calcut::tools {

namespace {

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

}  // namespace calcut::tools
