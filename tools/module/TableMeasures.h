// What betrays dead, stuck and hot pixels in a table. The warnings and the measures of a fleet take
// their numbers from here.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

namespace calcut::module {

/// Of the valid pixels of a table: those that are not 0 in the mask (an empty mask: all).
struct TableMeasures {
    std::size_t valid = 0;
    bool constant = false;  ///< one value in all of them; false without valid pixels

    /// The largest region of one value, connected by the sides of its pixels.
    std::size_t regionPixels = 0;
    std::size_t regionAt = 0;  ///< index of one of its pixels
    /// How many neighbours outside that region share a value, of 0 to 1. Tables of few levels have
    /// large regions by nature.
    double equalNeighbours = 0.0;

    /// The value farthest from the median, in robust standard deviations: 1.4826 times the median
    /// distance from the median, or the smallest distance above 0 where that is 0. Both medians are
    /// those of at most 4,096 pixels, evenly spread. Infinite for a value that is not finite.
    double farthest = 0.0;
    std::size_t farthestAt = 0;  ///< its index
};

/// values are whole rows of so many columns, fewer than 2^32; mask has as many entries, or none.
TableMeasures measure(std::span<const float> values, std::span<const std::uint8_t> mask,
                      std::size_t columns);

/// Zeros of a mask.
std::size_t countMasked(std::span<const std::uint8_t> mask);

}  // namespace calcut::module
