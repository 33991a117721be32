// What stands in the place of an image.
#include "tools/dump/Findings.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <optional>
#include <string_view>

#include <fmt/format.h>

#include "calcut/vantric.h"
#include "tools/terminal/Escape.h"

namespace calcut::tools {

namespace {

constexpr std::size_t longestMagic = 9;

bool isBlank(ByteView file) {
    return !file.empty() && (file[0] == 0x00 || file[0] == 0xFF) &&
           std::all_of(file.begin(), file.end(),
                       [&](std::uint8_t byte) { return byte == file[0]; });
}

/// Whether a magic appears once the bytes of each group are turned around.
bool isSwapped(ByteView file, std::size_t group) {
    std::array<std::uint8_t, 12> start{};
    const std::size_t size = std::min(file.size(), start.size()) / group * group;
    for (std::size_t at = 0; at < size; ++at) {
        start[at] = file[at - at % group + group - 1 - at % group];
    }
    return classify(ByteView(start).first(size)) != Layout::Unknown;
}

bool looksLikeLensFile(ByteView file) {
    std::array<float, VANTRIC_LENS_PARAMETERS> values{};
    if (file.size() != sizeof values) {
        return false;
    }
    std::memcpy(values.data(), file.data(), sizeof values);
    // Focal lengths in pixels; everything else is smaller.
    constexpr float longest = 1e5F;
    return std::all_of(values.begin(), values.end(),
                       [](float value) { return std::fabs(value) < longest; }) &&
           values[0] >= 1.0F && values[1] >= 1.0F;
}

std::string quoted(Layout layout) {
    return fmt::format("\"{}\"", traitsOf(layout).magic);
}

/// The magic of an image, or else of a calibration, further on.
std::optional<Finding> findElsewhere(ByteView file, const std::string& wanted,
                                     const std::string& seen) {
    for (const Layout known : knownLayouts) {
        const std::string_view magic = traitsOf(known).magic;
        const auto found = std::search(file.begin(), file.end(), magic.begin(), magic.end());
        const auto offset = static_cast<std::uint64_t>(found - file.begin());
        if (found != file.end() && known == Layout::Packed) {
            return Finding{
                "calibration-inside",
                "unknown magic",
                wanted,
                fmt::format("{}; but a packed calibration begins at byte {}", seen, offset),
                "the image's header is damaged or of another layout: read the part again",
                offset};
        }
        if (found != file.end()) {
            return Finding{"bytes-before-image",
                           "the image does not begin with the file",
                           quoted(known) + " at byte 0",
                           fmt::format("it at byte {}", offset),
                           "leave out the bytes in front of it (tail -c)",
                           offset};
        }
    }
    return std::nullopt;
}

}  // namespace

std::string quotedBytes(ByteView bytes) {
    std::string text = "\"";
    for (const std::uint8_t byte : bytes) {
        text += byte == '"' ? "\\\"" : escapeBytes(std::string(1, static_cast<char>(byte)));
    }
    return text + '"';
}

Finding wrongMagic(ByteView file, Layout layout) {
    const bool unknown = layout == Layout::Unknown;
    const std::string wanted = unknown ? fmt::format("{} (v7) or {} (Korveline)",
                                                     quoted(Layout::V7), quoted(Layout::Korveline))
                                       : quoted(layout);
    const std::size_t size = unknown ? longestMagic : traitsOf(layout).magic.size();
    const std::string seen = quotedBytes(file.first(std::min(size, file.size())));
    if (isBlank(file)) {
        return {"blank", "the file is blank", wanted, fmt::format("{:#04x} in every byte", file[0]),
                "the part is empty or was not connected: read it again"};
    }
    if (classify(file) != Layout::Unknown) {
        return {"wrong-layout", "wrong magic", wanted, quoted(classify(file)),
                "the file names its own layout: leave --layout out"};
    }
    constexpr const char* reorder = "read the part in byte order, or turn the bytes around";
    if (isSwapped(file, 2)) {
        return {"swapped-pairs", "bytes are swapped in pairs", wanted, seen, reorder};
    }
    if (isSwapped(file, 4)) {
        return {"swapped-words", "bytes are swapped in 32-bit words", wanted, seen, reorder};
    }
    if (looksLikeLensFile(file)) {
        return {"lens-file", "a file that a cut has written, lensdata.dat", wanted,
                "nine lens parameters", "give the dump that it was cut from"};
    }
    if (const auto elsewhere = findElsewhere(file, wanted, seen)) {
        return *elsewhere;
    }
    return unknown
               ? Finding{"unknown-magic", "unknown magic", wanted, seen,
                         "name the --layout if you know it, else read the part again"}
               : Finding{"magic", "wrong magic", wanted, seen,
                         "leave --layout out if this is another layout, else read the part again"};
}

}  // namespace calcut::tools
