// Maps as pictures: values over an image with their colours, limits and statistics. This is what
// other rooms draw with; the drawing library stays out of sight.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "tools/plot/Colour.h"
#include "tools/plot/Scale.h"
#include "tools/plot/Statistics.h"

namespace calcut::tools {

enum class PictureFormat : std::uint8_t { Png, Svg };

/// Svg for a name that ends in .svg.
PictureFormat pictureFormatOf(const std::string& path);

/// An image with square elements, row numbers growing downwards.
struct ImageShape {
    std::uint32_t columns = 1;
    std::uint32_t rows = 1;
    std::string columnLabel = "column (pixels)";
    std::string rowLabel = "row (pixels)";
    double firstColumn = 0.0;  ///< coordinates of the first element
    double firstRow = 0.0;
};

/// One map. What its spans point to has to outlive the drawing.
struct Map {
    std::string title;
    std::string note;  ///< below the title
    std::string colourLabel;
    ImageShape shape;
    MaskedValues values;  ///< columns x rows of them
    ColourMap colours = ColourMap::Sequential;
    std::optional<Scale> scale{};  ///< of the colours; robust limits when not set
    std::string footer{};          ///< statistics of the values when empty
};

/// Draws the maps on one page, in their order. Empty when the picture could not be made.
std::vector<std::uint8_t> drawMaps(const std::vector<Map>& maps, PictureFormat format);

}  // namespace calcut::tools
