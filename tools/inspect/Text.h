// What a file holds, as text for people.
#pragma once

#include <string>

#include "tools/text/Lines.h"

namespace calcut::inspect {

/// The tree of a file as lines of text, the last one ended, too.
std::string textOf(const text::Json& tree, const text::TextStyle& style);

}  // namespace calcut::inspect
