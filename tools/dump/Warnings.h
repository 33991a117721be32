// What is odd about a file that reads, or about the parts of one that do.
#pragma once

#include <vector>

#include "tools/dump/Diagnosis.h"

namespace calcut::tools {

/// The warnings about what was read; unknown blocks are not among them.
std::vector<Finding> warningsAbout(const Diagnosis& diagnosis);

}  // namespace calcut::tools
