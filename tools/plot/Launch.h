// calcut plot as the command sees it: another program.
#pragma once

#include "tools/plot/Plot.h"

namespace calcut::tools {

/// Whether a picture can have this name: *.png, *.svg, or "-".
bool isPictureName(const std::string& name);

/// Becomes calcut-plot. Returns the exit status when it cannot.
int launchPlot(const PlotOptions& options);

}  // namespace calcut::tools
