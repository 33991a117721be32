#include "tools/text/Escape.h"

#include <algorithm>

#include <fmt/format.h>

namespace calcut::text {

namespace {

// Code points that a terminal obeys instead of showing: C0 and C1 controls, the marks that turn the
// direction of what follows, line separators; and what is no character at all.
bool printable(std::uint32_t point) {
    const auto within = [point](std::uint32_t first, std::uint32_t last) {
        return point >= first && point <= last;
    };
    return point >= 0x20 && !within(0x7F, 0x9F) && point != 0x061C && !within(0x200E, 0x200F) &&
           !within(0x2028, 0x202E) && !within(0x2066, 0x2069) && !within(0xD800, 0xDFFF) &&
           (point & 0xFFFEU) != 0xFFFEU && point <= 0x10FFFF;
}

/// Bytes of the UTF-8 sequence at the start of text when it is well-formed and printable, else 0.
std::size_t printableSequence(std::string_view text) {
    const auto byte = [text](std::size_t at) { return static_cast<unsigned char>(text[at]); };
    const unsigned lead = byte(0);
    if (lead < 0x80) {
        return printable(lead) ? 1 : 0;
    }
    const std::size_t length = lead >= 0xF0 ? 4 : lead >= 0xE0 ? 3 : 2;
    std::uint32_t point = lead & (0x7FU >> length);
    for (std::size_t i = 1; i < length; ++i) {
        if (i == text.size() || (byte(i) & 0xC0U) != 0x80U) {
            return 0;
        }
        point = point << 6 | (byte(i) & 0x3FU);
    }
    const bool overlong = point < (length == 4 ? 0x10000U : length == 3 ? 0x800U : 0x80U);
    return lead < 0xC2 || lead > 0xF4 || overlong || !printable(point) ? 0 : length;
}

}  // namespace

std::string escapeBytes(std::string_view bytes) {
    std::string text;
    for (const char c : bytes) {
        const auto byte = static_cast<unsigned char>(c);
        if (c == '\\') {
            text += "\\\\";
        } else if (byte >= 0x20 && byte < 0x7F) {
            text += c;
        } else {
            text += fmt::format("\\x{:02x}", byte);
        }
    }
    return text;
}

std::string escapePath(std::string_view path) {
    std::string text;
    text.reserve(path.size());
    while (!path.empty()) {
        const std::size_t length = printableSequence(path);
        if (length > 0) {
            text.append(path.substr(0, length));
        } else {
            text += escapeBytes(path.substr(0, 1));
        }
        path.remove_prefix(std::max<std::size_t>(length, 1));
    }
    return text;
}

std::string escapeFormula(std::string text) {
    if (text.find_first_of("=+-@") == 0) {
        text.replace(0, 1, fmt::format("\\x{:02x}", text[0]));
    }
    return text;
}

std::string csvQuoted(std::string field) {
    if (field.find_first_of(",\"") == std::string::npos) {
        return field;
    }
    std::string quoted = "\"";
    for (const char c : field) {
        quoted.append(c == '"' ? 2 : 1, c);
    }
    return quoted + '"';
}

std::string csvField(std::string_view text) {
    return csvQuoted(escapeFormula(escapePath(text)));
}

std::string hexText(std::span<const std::uint8_t> bytes) {
    return fmt::format("{:02x}", fmt::join(bytes, ""));
}

std::string counted(std::uint64_t count, std::string_view what) {
    return fmt::format("{} {}{}", count, what, count == 1 ? "" : "s");
}

}  // namespace calcut::text
