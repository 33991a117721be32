// What a file holds, as one tree: the text and the JSON of calcut inspect are renderings of it.
// docs/inspect-json.md describes every key.
#pragma once

#include <cstdint>
#include <map>
#include <string_view>
#include <vector>

#include <nlohmann/json_fwd.hpp>

#include "tools/dump/Diagnosis.h"

namespace calcut::tools {

/// Floats keep their own width, so that they are printed with the fewest digits that read back.
using Json = nlohmann::basic_json<nlohmann::ordered_map, std::vector, std::string, bool,
                                  std::int64_t, std::uint64_t, float>;

/// Rises when a key goes or changes its meaning; new keys do not count.
inline constexpr int inspectSchema = 1;

/// The tree of a file. The diagnosis must have been made with everything wanted.
Json inspectTree(const Diagnosis& about, std::string_view path);

/// Its part about the decoded record; null without one.
Json recordTree(const Diagnosis& about);

/// Smallest and largest decoded value of a block; null for a payload that is empty, incomplete or
/// not decodable.
Json rangeTree(const Diagnosis& about, const vantric::BlockSighting& sighting);

/// A float as JSON has it: "inf" and "-inf"; a NaN stays one, and is null once it is written.
Json jsonFloat(float value);

}  // namespace calcut::tools
