// A comparison as text and as JSON.
#pragma once

#include <string>

#include "tools/compare/Comparison.h"
#include "tools/text/Json.h"
#include "tools/text/Lines.h"

namespace calcut::compare {

/// Rises when a key goes or changes its meaning; new keys do not count.
inline constexpr int compareSchema = 1;

/// What was compared: the paths of A and B as given, and the tolerances.
struct Compared {
    Pair<std::string> paths{};
    Tolerances tolerances{};
};

text::Json treeOf(const Comparison& comparison, const Compared& what);

/// Lines of text, the last one ended, too.
std::string textOf(const Comparison& comparison, const Compared& what,
                   const text::TextStyle& style);

}  // namespace calcut::compare
