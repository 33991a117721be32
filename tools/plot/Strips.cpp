#include "tools/plot/Strips.h"

#include <algorithm>
#include <cmath>

namespace calcut::tools {

namespace {

/// A longer image is cut.
constexpr std::uint32_t longestAspect = 12;
constexpr std::uint32_t mostStrips = 60;

/// Strips are as far apart as they are thick.
Strips cutInto(std::uint32_t count, std::uint32_t longSide, std::uint32_t shortSide, double along,
               double across) {
    Strips strips;
    strips.length = (longSide + count - 1) / count;
    strips.count = (longSide + strips.length - 1) / strips.length;
    strips.unit = std::min(along / strips.length, across / shortSide / (2.0 * strips.count - 1.0));
    // Every element gets as many dots of the screen as any other.
    strips.unit = strips.unit > 1.0 ? std::floor(strips.unit) : strips.unit;
    strips.pitch = 2.0 * shortSide * strips.unit;
    return strips;
}

}  // namespace

bool needsStrips(std::uint32_t columns, std::uint32_t rows) {
    return std::max(columns, rows) / longestAspect > std::min(columns, rows);
}

Strips stripsFor(std::uint32_t columns, std::uint32_t rows, double width, double height) {
    const bool alongRows = rows > columns;
    const std::uint32_t longSide = std::max(columns, rows);
    const std::uint32_t shortSide = std::min(columns, rows);
    const double along = alongRows ? height : width;
    const double across = alongRows ? width : height;
    Strips best = cutInto(1, longSide, shortSide, along, across);
    if (needsStrips(columns, rows)) {
        for (std::uint32_t count = 2; count <= std::min(mostStrips, longSide); ++count) {
            const Strips strips = cutInto(count, longSide, shortSide, along, across);
            if (strips.unit > best.unit) {
                best = strips;
            }
        }
    }
    best.alongRows = alongRows;
    const double thick = (best.count - 1) * best.pitch + shortSide * best.unit;
    const double extent = best.length * best.unit;
    best.width = alongRows ? thick : extent;
    best.height = alongRows ? extent : thick;
    return best;
}

}  // namespace calcut::tools
