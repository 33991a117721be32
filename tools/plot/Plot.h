// calcut plot: a calibration as a picture.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "tools/dump/Dump.h"

namespace calcut::tools {

struct PlotOptions {
    std::string input;             ///< dump or bare calibration, "-" for standard input
    std::string output;            ///< *.png or *.svg; "-" for a PNG on standard output
    std::optional<Layout> layout;  ///< by its first bytes when not set
    std::uint64_t maxSize = defaultMaxSize;
    bool sharedScale = false;  ///< one colour scale for the tables of all frequencies
};

/// Draws the sheet. Returns the exit status.
int runPlot(const PlotOptions& options);

}  // namespace calcut::tools
