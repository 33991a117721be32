// Many dumps at once, a folder for each.
#pragma once

#include "tools/cut/Cut.h"

namespace calcut::tools {

/// Cuts on threads; a bad dump stops no other. Returns the exit status.
int cutMany(const CutOptions& options);

}  // namespace calcut::tools
