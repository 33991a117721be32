// Pictures: calcut plot, and those of calcut compare. The Python package draws them (calcut.plot);
// here its program calcut-plot is found and run.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "tools/module/Diagnosis.h"

namespace calcut::plot {

struct PlotOptions {
    std::vector<std::string> inputs;  ///< dumps or bare calibrations, folders of them, "-"
    /// *.png, *.svg or *.pdf, with "{stem}" for the name of each dump without its extension; "-"
    /// for a PNG on standard output. Several dumps may share a PDF.
    std::string output;
    module::Reading reading;
    bool sharedScale = false;  ///< one colour scale for the tables of all frequencies
    bool damaged = false;      ///< draw what reads of a dump with faults
    bool force = false;        ///< replace a file that exists
};

/// Whether a picture can have this name.
bool isPictureName(const std::string& name);

/// Draws the sheets: becomes the program calcut-plot. Returns only by throwing Refused.
int runPlot(const PlotOptions& given);

/// A picture of how B differs from A.
struct Differences {
    const module::Diagnosis &a, &b;
    std::array<std::string, 2> paths;  ///< of A and of B, "-" for standard input
    std::optional<module::Layout> layout;
    std::optional<double> tolerance;
    std::string output;  ///< *.png, *.svg or *.pdf
};

/// Makes it, in the format that its output names. Throws Refused when it cannot.
std::vector<std::uint8_t> drawDifferences(const Differences& of);

}  // namespace calcut::plot
