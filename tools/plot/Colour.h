// Colours of the pictures. What is masked and what is not finite is told apart from every colour of
// a map by everyone, in grey print too: the maps leave the lightest and the darkest colours free.
#pragma once

#include <cstdint>

namespace calcut::tools {

struct Rgb {
    std::uint8_t r = 0, g = 0, b = 0;
    bool operator==(const Rgb&) const = default;
};

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

}  // namespace calcut::tools
