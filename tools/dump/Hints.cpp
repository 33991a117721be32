#include "tools/dump/Hints.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <optional>
#include <string_view>

#include <fmt/format.h>

#include "calcut/vantric.h"
#include "tools/dump/Findings.h"
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

std::optional<std::uint64_t> find(ByteView file, Layout layout) {
    const std::string_view magic = magicOf(layout);
    const auto found = std::search(file.begin(), file.end(), magic.begin(), magic.end());
    return found == file.end() ? std::nullopt : std::optional<std::uint64_t>(found - file.begin());
}

std::string wantedMagic(Layout layout) {
    return layout == Layout::Unknown
               ? fmt::format("{} (v7) or {} (Korveline)", quotedMagic(Layout::V7),
                             quotedMagic(Layout::Korveline))
               : quotedMagic(layout);
}

/// The magic of an image, or else of a calibration, further on.
std::optional<Finding> findElsewhere(ByteView file, Particulars about) {
    for (const Layout known : knownLayouts) {
        if (const auto offset = find(file, known)) {
            about.offset = about.found = *offset;
            if (known == Layout::Packed) {
                return findingOf(OwnCause::calibrationInside, about);
            }
            about.wanted = quotedMagic(known);
            return findingOf(OwnCause::bytesBeforeImage, about);
        }
    }
    return std::nullopt;
}

}  // namespace

std::string quotedMagic(Layout layout) {
    return fmt::format("\"{}\"", magicOf(layout));
}

std::string quotedBytes(ByteView bytes) {
    std::string text = "\"";
    for (const std::uint8_t byte : bytes) {
        text += byte == '"' ? "\\\"" : escapeBytes(std::string(1, static_cast<char>(byte)));
    }
    return text + '"';
}

Finding wrongMagic(ByteView file, Layout layout) {
    Particulars about;
    about.wanted = wantedMagic(layout);
    const std::size_t size = layout == Layout::Unknown ? longestMagic : magicOf(layout).size();
    about.seen = quotedBytes(file.first(std::min(size, file.size())));
    if (isBlank(file)) {
        about.seen = fmt::format("{:#04x}", file[0]);
        return findingOf(OwnCause::blank, about);
    }
    if (classify(file) != Layout::Unknown) {
        about.seen = quotedMagic(classify(file));
        return findingOf(OwnCause::wrongLayout, about);
    }
    for (const auto& [group, cause] :
         {std::pair{2, OwnCause::swappedPairs}, std::pair{4, OwnCause::swappedWords}}) {
        if (isSwapped(file, static_cast<std::size_t>(group))) {
            return findingOf(cause, about);
        }
    }
    if (looksLikeLensFile(file)) {
        return findingOf(OwnCause::lensFile, about);
    }
    if (std::optional<Finding> elsewhere = findElsewhere(file, about)) {
        return *std::move(elsewhere);
    }
    return layout == Layout::Unknown ? findingOf(OwnCause::unknownMagic, about)
                                     : findingOf(image::Cause::wrongMagic, about);
}

}  // namespace calcut::tools
