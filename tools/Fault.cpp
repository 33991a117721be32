#include "Fault.h"

#include <algorithm>
#include <cstring>

#include <fmt/format.h>

#include "StatusNames.h"

namespace calcut::tools {

std::string describe(const Fault& fault) {
    std::string line = fmt::format("{} at byte {} ({:#x})", fault.what, fault.offset, fault.offset);
    if (!fault.expected.empty()) {
        line += ": expected " + fault.expected;
    }
    if (!fault.found.empty()) {
        line += (fault.expected.empty() ? ": found " : ", found ") + fault.found;
    }
    // A sensor of 2^31 pixels or more is refused with its pixel count, which is no status.
    if (fault.status != VANTRIC_OK && fault.status <= VANTRIC_WARN_PARTIAL) {
        line += " [" + statusName(fault.status) + "]";
    }
    return line;
}

std::string byteCount(std::uint64_t count) {
    return fmt::format("{} byte{}", count, count == 1 ? "" : "s");
}

// A file of another layout is better told by its magic than by its length.

std::string quoted(std::string_view text) {
    return fmt::format("\"{}\"", text);
}

std::string printable(ByteView bytes) {
    std::string text = "\"";
    for (const std::uint8_t byte : bytes) {
        if (byte < 0x20 || byte > 0x7E || byte == '"' || byte == '\\') {
            text += fmt::format("\\x{:02x}", byte);
        } else {
            text += static_cast<char>(byte);
        }
    }
    return text + '"';
}

ByteView part(ByteView bytes, std::uint64_t offset, std::uint64_t size) {
    if (offset >= bytes.size()) {
        return {};
    }
    return bytes.subspan(offset, std::min<std::uint64_t>(size, bytes.size() - offset));
}

bool startsWith(ByteView bytes, std::string_view magic) {
    return bytes.size() >= magic.size() &&
           std::memcmp(bytes.data(), magic.data(), magic.size()) == 0;
}

}  // namespace calcut::tools
