// The JSON of a cut: the note in a dump's folder and the rows of a report.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "tools/cut/CutResult.h"

namespace calcut::tools {

/// Whose cut a folder holds: cut.json.
struct Owner {
    std::string source;  ///< absolute path of the dump
    std::uint64_t size = 0;
    std::uint32_t crc = 0;  ///< CRC-32 of the whole dump
    std::string layout;
    std::uint16_t maskedPixels = 0;
    struct File {
        std::string name;
        std::uint64_t size = 0;
    };
    std::vector<File> files;
};
std::string toJson(const Owner& owner);
/// Nothing for a text that is no such note.
std::optional<Owner> ownerFromJson(const std::string& text);

/// Version of the keys of cut.json and of the report.
inline constexpr int cutSchema = 2;

/// A row of the report, on one line.
std::string toJson(const CutResult& result);

}  // namespace calcut::tools
