// What is odd about a file that reads, or about the parts of one that do.
#pragma once

#include "tools/dump/Diagnosis.h"

namespace calcut::tools {

/// Adds the warnings about what was read.
void addWarnings(Diagnosis& dump);

}  // namespace calcut::tools
