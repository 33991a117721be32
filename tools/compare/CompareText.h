// The tree of a comparison as text for people.
#pragma once

#include <string>

#include "tools/inspect/Text.h"
#include "tools/inspect/Tree.h"

namespace calcut::tools {

/// Lines of text, the last one ended, too.
std::string compareText(const Json& tree, const TextStyle& style);

}  // namespace calcut::tools
