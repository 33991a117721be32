// What a file holds, as the JSON of calcut inspect.
// docs/inspect-json.md describes every key.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "tools/module/Diagnosis.h"
#include "tools/module/RecordFields.h"
#include "tools/text/Json.h"

namespace calcut::module {

/// Rises when a key goes or changes its meaning; new keys do not count.
inline constexpr int inspectSchema = 1;

/// The tree of a file. The diagnosis must have been made with everything wanted.
text::Json inspectTree(const Diagnosis& about, std::string_view path);

/// Its part about the decoded record; null without one.
text::Json recordTree(const Diagnosis& about);

/// A fault or a warning.
text::Json findingTree(const Finding& finding);

/// How a block is stored: its kind, count and, where its kind has them, bits and fixed point.
text::Json storageTree(const RXBlockHeader& header);

/// The value, or null without one.
template <typename Value>
text::Json orNull(bool isThere, const Value& value) {
    return isThere ? text::Json(value) : text::Json(nullptr);
}
template <typename Value>
text::Json orNull(const std::optional<Value>& value) {
    return orNull(value.has_value(), value.value_or(Value{}));
}

}  // namespace calcut::module
