#include "tools/plot/Colour.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <span>

namespace calcut::tools {

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

Rgb between(std::span<const Rgb> anchors, double fraction) {
    const double place = fraction * static_cast<double>(anchors.size() - 1);
    const std::size_t below = std::min(static_cast<std::size_t>(place), anchors.size() - 2);
    const double part = place - static_cast<double>(below);
    const auto mix = [part](std::uint8_t from, std::uint8_t to) {
        return static_cast<std::uint8_t>(std::lround(from + (to - from) * part));
    };
    const Rgb& from = anchors[below];
    const Rgb& to = anchors[below + 1];
    return {mix(from.r, to.r), mix(from.g, to.g), mix(from.b, to.b)};
}

}  // namespace

Rgb mapColour(ColourMap map, double fraction) {
    const double cut = std::clamp(fraction, 0.0, 1.0);
    return map == ColourMap::Sequential
               ? between(viridis, viridisBegin + (viridisEnd - viridisBegin) * cut)
               : between(blueToRed, cut);
}

}  // namespace calcut::tools
