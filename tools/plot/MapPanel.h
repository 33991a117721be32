// A map in a cell of a page, open for what goes on top.
#pragma once

#include <string>
#include <vector>

#include "tools/plot/Frame.h"
#include "tools/plot/MapPicture.h"

namespace calcut::tools {

/// Draws a map; legend goes in front of the map's own entries.
Frame drawMap(Canvas& canvas, const Rect& cell, const Map& map,
              std::vector<LegendEntry> legend = {});

/// More than that many rings hide what they point at.
inline constexpr std::size_t mostRings = 200;

/// Rings around pixels of an image, given by their index.
void ringPixels(const Frame& frame, std::uint32_t columns, const std::vector<std::size_t>& pixels);

}  // namespace calcut::tools
