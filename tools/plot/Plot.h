// calcut plot: a calibration as a picture; the pictures of calcut compare; and the part of the
// command that draws both, calcut-plot.so. It is loaded only by who draws, so that no other
// subcommand loads the drawing library.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "tools/compare/Compare.h"
#include "tools/module/Diagnosis.h"
#include "tools/module/Layout.h"

namespace calcut::plot {

struct PlotOptions {
    std::string input;                     ///< dump or bare calibration, "-" for standard input
    std::string output;                    ///< *.png or *.svg; "-" for a PNG on standard output
    std::optional<module::Layout> layout;  ///< by its first bytes when not set
    std::uint64_t maxSize = files::defaultMaxSize;
    bool sharedScale = false;  ///< one colour scale for the tables of all frequencies
};

/// Whether a picture can have this name: *.png, *.svg, or "-".
bool isPictureName(const std::string& name);

/// Draws the sheet. Returns the exit status.
int runPlot(const PlotOptions& options);

/// For runCompare.
compare::DrawDifferences loadDrawDifferences();

/// Functions that make pictures; the output's name decides the format, and an empty result is a
/// picture that could not be made.
struct Drawing {
    const char* version;  ///< of calcut; both sides must be of one
    /// A calibration that reads, on one page, with the name of its file. sharedScale: the pixel
    /// tables of all frequencies in the same colours.
    std::vector<std::uint8_t> (*sheet)(const module::Diagnosis& module, const std::string& input,
                                       bool sharedScale, const std::string& output);
    /// B - A for each table that both have in the same shape.
    compare::DrawDifferences differences;
};

extern "C" {
/// What calcut-plot.so exports.
extern const Drawing calcutDrawing;
}

}  // namespace calcut::plot
