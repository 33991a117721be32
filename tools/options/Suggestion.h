// What somebody may have meant.
#pragma once

#include <string>
#include <vector>

namespace calcut::tools {

/// " (did you mean ...?)" with the name that is nearest to a word; empty when none is near.
std::string suggestion(const std::string& word, const std::vector<std::string>& names);

}  // namespace calcut::tools
