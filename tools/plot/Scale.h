// Ranges of values along an axis or a colour bar, and round values inside them.
#pragma once

#include <string>
#include <vector>

namespace calcut::tools {

struct Scale {
    double low = 0.0;
    double high = 1.0;
    bool whole = false;  ///< ticks only at integers

    /// 0 at low, 1 at high; not cut to that range.
    [[nodiscard]] double fraction(double value) const { return (value - low) / (high - low); }
};

struct Tick {
    double value = 0.0;
    std::string label;
};

/// Round values inside the scale, at most about count of them.
std::vector<Tick> ticksOf(const Scale& scale, int count);

/// A scale that holds the values, never empty; a constant gets some room on both sides.
Scale scaleAround(double low, double high);

}  // namespace calcut::tools
