// Panels side by side on one page.
#pragma once

#include <functional>
#include <vector>

#include "tools/plot/Canvas.h"

namespace calcut::tools {

/// Draws into its cell.
using Panel = std::function<void(Canvas& canvas, const Rect& cell)>;

/// Empty when the picture could not be made.
std::vector<std::uint8_t> drawPage(const std::vector<Panel>& panels, PictureFormat format);

}  // namespace calcut::tools
