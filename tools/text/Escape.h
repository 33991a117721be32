// Bytes of unknown origin made fit for people: nothing that comes out of a file or a file name
// reaches a terminal but through here.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

namespace calcut::text {

/// Printable ASCII as it is, a backslash doubled, everything else as \xNN.
std::string escapeBytes(std::string_view bytes);

/// A path: UTF-8 stays, control characters and what is no UTF-8 become \xNN.
std::string escapePath(std::string_view path);

/// A text that no spreadsheet takes for a formula: a leading =, +, - or @ becomes \xNN.
std::string escapeFormula(std::string text);

/// A field of a CSV, quoted where it must be (RFC 4180).
std::string csvQuoted(std::string field);

/// A text as a field of a CSV: a path, no formula, quoted where it must be.
std::string csvField(std::string_view text);

/// Lower case hexadecimal, two digits a byte.
std::string hexText(std::span<const std::uint8_t> bytes);

/// "1 dump", "2 dumps"
std::string counted(std::uint64_t count, std::string_view what);
inline std::string byteCount(std::uint64_t count) {
    return counted(count, "byte");
}

}  // namespace calcut::text
