// JSON as the command prints and reads it.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

namespace calcut::text {

/// Keys in the order they are set. Floats keep their own width, so that they are printed with the
/// fewest digits that read back.
using Json = nlohmann::basic_json<nlohmann::ordered_map, std::vector, std::string, bool,
                                  std::int64_t, std::uint64_t, float>;

/// A tree as it is printed, on one line without an indent below 0. Its strings are escaped as paths
/// are; infinities become "inf" and "-inf", a NaN null.
std::string jsonText(Json tree, int indent = -1);

}  // namespace calcut::text
