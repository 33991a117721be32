// How an image lies on the page: whole, or cut into strips side by side where it would be a mere
// line. Its elements are squares in any case.
#pragma once

#include <cstdint>

namespace calcut::tools {

struct Strips {
    bool alongRows = true;     ///< the rows are cut (a tall image); else the columns
    std::uint32_t count = 1;   ///< strips
    std::uint32_t length = 1;  ///< elements of the cut side in a strip
    double unit = 1.0;         ///< side of an element on the page
    double pitch = 0.0;        ///< on the page, from a strip to the next
    double width = 0.0;        ///< of everything on the page
    double height = 0.0;
};

/// Whether an image is so long that it is cut.
bool needsStrips(std::uint32_t columns, std::uint32_t rows);

/// The arrangement with the largest elements. Those larger than a unit are whole units large.
Strips stripsFor(std::uint32_t columns, std::uint32_t rows, double width, double height);

}  // namespace calcut::tools
