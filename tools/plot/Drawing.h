// What the command has from calcut-plot.so, the part of it that draws. The part is loaded only by
// who draws, so that no other subcommand loads the drawing library.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "tools/compare/Compare.h"
#include "tools/dump/Diagnosis.h"

namespace calcut::tools {

/// Functions that make pictures; the output's name decides the format, and an empty result is a
/// picture that could not be made.
struct Drawing {
    const char* version;  ///< of calcut; both sides must be of one
    /// A calibration that reads, on one page, with the name of its file. sharedScale: the pixel
    /// tables of all frequencies in the same colours.
    std::vector<std::uint8_t> (*sheet)(const Diagnosis& module, const std::string& input,
                                       bool sharedScale, const std::string& output);
    /// B - A for each table that both have in the same shape.
    DrawDifferences differences;
};

extern "C" {
/// What calcut-plot.so exports.
extern const Drawing calcutDrawing;
}

}  // namespace calcut::tools
