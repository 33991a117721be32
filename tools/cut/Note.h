// cut.json: whose cut a folder holds.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "tools/cut/StackFiles.h"
#include "tools/text/Json.h"

namespace calcut::cut {

/// Version of the keys of cut.json and of the report.
inline constexpr int cutSchema = 3;

inline constexpr const char* noteFile = "cut.json";

/// The note of a cut.
text::Json noteOf(const TakenDump& taken, const CutResult& result);

/// The note in a file's bytes, with a source at least; an empty object for anything else.
text::Json parseNote(const std::vector<std::uint8_t>& bytes);

/// The note in a folder; an empty object when it has none.
text::Json noteIn(const std::string& folder);

/// Whether a folder's note holds nothing but zeros, as after a loss of power.
bool isNoteBlank(const std::string& folder);

/// Whether two notes have the same values of these keys.
bool agree(const text::Json& found, const text::Json& note,
           std::initializer_list<const char*> keys);

/// Whether the cut in a folder is one of the dump at that absolute path.
bool isCutOf(const std::string& folder, const std::string& source);

}  // namespace calcut::cut
