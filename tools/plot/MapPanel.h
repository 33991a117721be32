// A map in a cell of a page, open for what goes on top; and the page.
#pragma once

#include <functional>
#include <optional>
#include <vector>

#include "tools/plot/Frame.h"
#include "tools/plot/MapPicture.h"

namespace calcut::tools {

/// Draws a map; entry goes in front of the map's own legend.
Frame drawMap(Canvas& canvas, const Rect& cell, const Map& map,
              const std::optional<LegendEntry>& entry = {});

/// More rings than that hide what they point at.
inline constexpr std::size_t mostRings = 200;

/// Rings around pixels of an image, given by their index; none when they are more than most.
void ringPixels(const Frame& frame, std::uint32_t columns, const std::vector<std::size_t>& pixels,
                std::size_t most);

/// Draws into its cell.
using Panel = std::function<void(Canvas& canvas, const Rect& cell)>;

/// Panels side by side on one page. Empty when the picture could not be made.
std::vector<std::uint8_t> drawPage(const std::vector<Panel>& panels, PictureFormat format);

}  // namespace calcut::tools
