// calcut plot, and the pictures of calcut compare, as the command sees them: another program.
#pragma once

#include "tools/compare/Compare.h"
#include "tools/plot/Plot.h"

namespace calcut::tools {

/// Whether a picture can have this name: *.png, *.svg, or "-".
bool isPictureName(const std::string& name);

/// Becomes calcut-plot. Returns the exit status when it cannot.
int launchPlot(const PlotOptions& options);

/// Likewise, for a comparison with a picture. Standard input can be read only once, so calcut-plot
/// does all of it.
int launchCompare(const CompareOptions& options);

}  // namespace calcut::tools
