#include "tools/plot/Scale.h"

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

}  // namespace calcut::tools
