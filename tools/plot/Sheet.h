// The sheet of "calcut plot": one calibration on one page.
#pragma once

#include <cstdint>
#include <vector>

#include "tools/plot/MapPicture.h"
#include "tools/plot/Panels.h"

namespace calcut::tools {

/// Draws a calibration that reads. sharedScale: the pixel tables of all frequencies in the same
/// colours. Empty when the picture could not be made.
std::vector<std::uint8_t> drawSheet(const Module& module, bool sharedScale, PictureFormat format);

}  // namespace calcut::tools
