// How two modules differ, as one tree: the text and the JSON of calcut compare are renderings of
// it. docs/compare-json.md describes every key.
#pragma once

#include <optional>
#include <string_view>

#include "tools/dump/Diagnosis.h"
#include "tools/inspect/Text.h"

namespace calcut::tools {

/// Rises when a key goes or changes its meaning; new keys do not count.
inline constexpr int compareSchema = 1;

struct NamedModule {
    std::string_view path;
    const Diagnosis& diagnosis;
};

/// With a tolerance only decoded values count, however they are stored; without one, the stored
/// blocks must be equal, too.
Json compareTree(const NamedModule& a, const NamedModule& b, std::optional<double> tolerance);

/// Lines of text, the last one ended, too.
std::string compareText(const Json& tree, const TextStyle& style);

}  // namespace calcut::tools
