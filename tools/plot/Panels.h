// The sheet of "calcut plot", one calibration on one page, its panels, and what they are made of.
#pragma once

#include <optional>
#include <string>

#include "tools/module/Diagnosis.h"
#include "tools/plot/Frame.h"
#include "tools/plot/Numbers.h"

namespace calcut::plot {

/// The parts around an image with the pixels' numbers at its sides.
FrameParts imageParts(std::string title, const VantricImagerArea& area);

/// Draws a map of values in the colours of the bar, whose arrows are set here; its own legend comes
/// behind what parts has, and statistics where parts has no footer.
Frame drawMap(const Cell& cell, FrameParts parts, ColourBar bar, const MaskedValues& values);

/// The mask, whose size is the number of pixels.
std::span<const std::uint8_t> maskOf(const module::Diagnosis& module);

// All for a module whose calibration reads.
void drawMask(const Cell& cell, const module::Diagnosis& module);
void drawRays(const Cell& cell, const module::Diagnosis& module);
/// Values of a block with one for each pixel. scale: of the colours, their own when not set.
void drawTable(const Cell& cell, const module::Diagnosis& module, const std::string& title,
               const float* values, std::uint32_t block, const std::optional<Scale>& scale);
/// The small tables of frequency k: values A and B, wiggling A and B.
void drawFrequencyTables(const Cell& cell, const module::Diagnosis& module, unsigned k);
void drawPsf(const Cell& cell, const module::Diagnosis& module);
void drawProfile(const Cell& cell, const module::Diagnosis& module);

/// See Drawing in Plot.h.
std::vector<std::uint8_t> drawDifferences(const module::Diagnosis& a, const module::Diagnosis& b,
                                          const std::string& output);

}  // namespace calcut::plot
