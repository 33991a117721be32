// The sheet of "calcut plot": one calibration on one page.
#pragma once

#include <cstdint>
#include <vector>

#include "CalibrationReport.h"

namespace calcut::tools {

enum class SheetFormat { Png, Svg };

/// Draws a calibration that reads. Empty when the picture could not be made.
std::vector<std::uint8_t> drawSheet(const CalibrationReport& report, SheetFormat format);

}  // namespace calcut::tools
