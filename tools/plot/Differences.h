// The differences of two modules as one picture.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "tools/dump/Diagnosis.h"

namespace calcut::tools {

/// Draws B - A for each table that both have in the same shape; the output's name decides the
/// format. Empty when the picture could not be made.
std::vector<std::uint8_t> drawDifferences(const Diagnosis& a, const Diagnosis& b,
                                          const std::string& output);

}  // namespace calcut::tools
