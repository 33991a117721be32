#include "tools/plot/Page.h"

#include <algorithm>

namespace calcut::tools {

namespace {

constexpr double cellWidth = 420.0;
constexpr double cellHeight = 350.0;

/// Few empty cells at a shape that suits a screen.
std::size_t columnsFor(std::size_t panels) {
    if (panels == 4) {
        return 2;
    }
    return panels <= 6 || panels == 9 ? std::min<std::size_t>(panels, 3) : 4;
}

}  // namespace

std::vector<std::uint8_t> drawPage(const std::vector<Panel>& panels, PictureFormat format) {
    const std::size_t columns = std::max<std::size_t>(columnsFor(panels.size()), 1);
    const std::size_t rows = std::max<std::size_t>((panels.size() + columns - 1) / columns, 1);
    Canvas canvas(cellWidth * static_cast<double>(columns), cellHeight * static_cast<double>(rows),
                  format);
    for (std::size_t i = 0; i < panels.size(); ++i) {
        panels[i](canvas, {cellWidth * static_cast<double>(i % columns),
                           cellHeight * static_cast<double>(i / columns), cellWidth, cellHeight});
    }
    return canvas.finish();
}

}  // namespace calcut::tools
