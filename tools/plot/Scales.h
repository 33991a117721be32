// How values become places on the page and colours; the colours of everything else.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace calcut::plot {

struct Rgb {
    std::uint8_t r = 0, g = 0, b = 0;
    bool operator==(const Rgb&) const = default;
};

// What is masked and what is not finite is told apart from every colour of a map by everyone, in
// grey print too: the maps leave the lightest and the darkest colours free.
inline constexpr Rgb paperColour{0xFF, 0xFF, 0xFF};
inline constexpr Rgb inkColour{0x20, 0x20, 0x20};
inline constexpr Rgb quietColour{0x60, 0x60, 0x60};
inline constexpr Rgb curveColour{0x2E, 0x6D, 0x8E};
inline constexpr Rgb faultColour{0xC0, 0x10, 0x10};
inline constexpr Rgb maskedColour = paperColour;         ///< on a map
inline constexpr Rgb notFiniteColour{0x00, 0x00, 0x00};  ///< likewise

enum class ColourMap : std::uint8_t {
    Sequential,  ///< dark to light
    Diverging    ///< blue, light grey, red: sign and size of a difference
};

/// Perceptually uniform colour for a fraction, which is cut to [0, 1].
Rgb mapColour(ColourMap map, double fraction);

struct Point {
    double x = 0.0, y = 0.0;
};

struct Scale {
    double low = 0.0;
    double high = 1.0;
    bool whole = false;  ///< ticks only at integers

    /// 0 at low, 1 at high; not cut to that range.
    [[nodiscard]] double fraction(double value) const { return (value - low) / (high - low); }
};

/// A scale that holds the values, never empty; a constant gets some room on both sides.
Scale scaleAround(double low, double high);

struct Tick {
    double value = 0.0;
    std::string label;
};

/// Round values inside the scale, at most about count of them.
std::vector<Tick> ticksOf(const Scale& scale, int count);

/// An image on the page: whole, or cut into strips side by side where it would be a mere line.
struct Strips {
    bool alongRows = true;     ///< the rows are cut (a tall image); else the columns
    std::uint32_t count = 1;   ///< strips
    std::uint32_t length = 1;  ///< elements of the cut side in a strip
    double unit = 0.0;         ///< side of an element on the page
    double pitch = 0.0;        ///< on the page, from a strip to the next
    double width = 0.0;        ///< of everything on the page
    double height = 0.0;
};

/// Whether an image is so long that it is cut.
bool needsStrips(std::uint32_t columns, std::uint32_t rows);

/// The arrangement with the largest elements. Those larger than a unit are whole units large.
Strips stripsFor(std::uint32_t columns, std::uint32_t rows, double width, double height);

}  // namespace calcut::plot
