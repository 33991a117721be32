// How two modules differ, as one tree: the text and the JSON of calcut compare are renderings of
// it. docs/compare-json.md describes every key.
#pragma once

#include <optional>
#include <string_view>

#include "tools/module/Diagnosis.h"
#include "tools/text/Lines.h"

namespace calcut::compare {

/// Rises when a key goes or changes its meaning; new keys do not count.
inline constexpr int compareSchema = 1;

struct NamedModule {
    std::string_view path;
    const module::Diagnosis& diagnosis;
};

/// With a tolerance only decoded values count, however they are stored; without one, the stored
/// blocks must be equal, too.
text::Json compareTree(const NamedModule& a, const NamedModule& b, std::optional<double> tolerance);

/// Lines of text, the last one ended, too.
std::string compareText(const text::Json& tree, const text::TextStyle& style);

}  // namespace calcut::compare
