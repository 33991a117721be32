// calcut plot: a calibration as a picture; and the pictures of calcut compare.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "tools/compare/Compare.h"
#include "tools/dump/Dump.h"

namespace calcut::tools {

struct PlotOptions {
    std::string input;             ///< dump or bare calibration, "-" for standard input
    std::string output;            ///< *.png or *.svg; "-" for a PNG on standard output
    std::optional<Layout> layout;  ///< by its first bytes when not set
    std::uint64_t maxSize = defaultMaxSize;
    bool sharedScale = false;  ///< one colour scale for the tables of all frequencies
};

/// Whether a picture can have this name: *.png, *.svg, or "-".
bool isPictureName(const std::string& name);

/// Draws the sheet. Returns the exit status.
int runPlot(const PlotOptions& options);

/// runCompare for a comparison with a picture.
int runCompareAndDraw(const CompareOptions& options);

}  // namespace calcut::tools
