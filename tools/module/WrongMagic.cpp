// Files that do not begin as they should: what else they may be, and what to do about it.
#include <algorithm>
#include <array>
#include <cctype>
#include <cmath>
#include <cstring>
#include <string_view>

#include <fmt/format.h>

#include "tools/module/Findings.h"
#include "tools/text/Escape.h"

namespace calcut::module {

namespace {

bool isBlank(files::ByteView file) {
    return !file.empty() && (file[0] == 0x00 || file[0] == 0xFF) &&
           std::all_of(file.begin(), file.end(),
                       [&](std::uint8_t byte) { return byte == file[0]; });
}

/// The start of a file with the bytes of each group turned around; whole groups only.
std::array<std::uint8_t, 12> swappedStart(files::ByteView file, std::size_t group) {
    std::array<std::uint8_t, 12> start{};
    const std::size_t size = std::min(file.size(), start.size()) / group * group;
    for (std::size_t at = 0; at < size; ++at) {
        start[at] = file[at - at % group + group - 1 - at % group];
    }
    return start;
}

bool looksLikeLensFile(files::ByteView file) {
    std::array<float, VANTRIC_LENS_PARAMETERS> values{};
    if (file.size() != sizeof values) {
        return false;
    }
    std::memcpy(values.data(), file.data(), sizeof values);
    // Focal lengths in pixels; everything else is smaller.
    constexpr float longest = 1e5F;
    return std::all_of(values.begin(), values.end(),
                       [](float value) { return std::fabs(value) < longest; }) &&
           values[VANTRIC_LENS_FX] >= 1.0F && values[VANTRIC_LENS_FY] >= 1.0F;
}

// --------------------------------------------------------------------------------- other forms --

bool areHex(std::string_view text) {
    return std::ranges::all_of(text, [](unsigned char c) { return std::isxdigit(c) != 0; });
}

/// Whether a file is made of such characters and white space, and long enough to tell.
bool consistsOf(std::string_view text, bool (*belongs)(unsigned char)) {
    constexpr std::size_t enough = 64;
    return text.size() >= enough && std::ranges::all_of(text, [belongs](unsigned char c) {
               return belongs(c) || std::isspace(c) != 0;
           });
}

/// A dump in another form, and the command that turns it into the dump.
struct Form {
    const char* name;
    const char* what;
    const char* command;
    bool (*isOf)(std::string_view file);
};

constexpr std::array forms = {
    Form{"gzip", "a gzip file", "gunzip -c FILE > DUMP",
         [](std::string_view file) { return file.starts_with("\x1F\x8B"); }},
    Form{"xxd", "a hex dump of xxd", "xxd -r FILE DUMP",
         [](std::string_view file) {
             return file.size() > 10 && areHex(file.substr(0, 8)) && file.substr(8, 2) == ": ";
         }},
    Form{"intel-hex", "an Intel HEX file", "objcopy -I ihex -O binary FILE DUMP",
         [](std::string_view file) {
             return file.size() > 10 && file[0] == ':' && areHex(file.substr(1, 10));
         }},
    Form{"s-record", "a Motorola S-record file", "objcopy -I srec -O binary FILE DUMP",
         [](std::string_view file) {
             return file.size() > 10 && file[0] == 'S' && areHex(file.substr(1, 9));
         }},
    Form{"plain-hex", "plain hex digits", "xxd -r -p FILE DUMP",
         [](std::string_view file) {
             return consistsOf(file, [](unsigned char c) { return std::isxdigit(c) != 0; });
         }},
    Form{"base64", "base64 text", "base64 -d FILE > DUMP",
         [](std::string_view file) {
             return consistsOf(file, [](unsigned char c) {
                 return std::isalnum(c) != 0 || c == '+' || c == '/' || c == '=';
             });
         }},
};

// --------------------------------------------------------------------------------------- magic --

std::string quoted(const Layout& layout) {
    return fmt::format("\"{}\"", layout.magic);
}

/// Where the magic of a layout stands; the file's size when it does not.
std::uint64_t offsetOf(const Layout& layout, files::ByteView file) {
    const std::string_view text(reinterpret_cast<const char*>(file.data()), file.size());
    return std::min(text.find(layout.magic), text.size());
}

/// The byte where the file leaves the magic that it comes nearest to; 0 when it has less than half
/// of any.
std::uint64_t damagedByte(files::ByteView file, const Layout& wanted) {
    std::size_t most = 0;
    std::uint64_t damaged = 0;
    for (const Layout& layout : knownLayouts()) {
        const std::size_t size = std::min(file.size(), layout.magic.size());
        std::size_t right = 0;
        std::size_t first = size;
        for (std::size_t at = 0; at < size; ++at) {
            const bool same = file[at] == static_cast<std::uint8_t>(layout.magic[at]);
            right += same ? 1 : 0;
            first = same ? first : std::min(first, at);
        }
        const bool isMeant = wanted == layout || (wanted == Layout::Unknown && layout.image);
        if (isMeant && 2 * right >= layout.magic.size() && right > most) {
            most = right;
            damaged = first;
        }
    }
    return damaged;
}

}  // namespace

Finding wrongMagic(files::ByteView file, const Layout& layout) {
    const bool unknown = layout == Layout::Unknown;
    std::string wanted = quoted(layout);
    std::size_t size = layout.magic.size();
    if (unknown) {
        wanted.clear();
        for (const image::Layout& known : image::layouts) {
            wanted += fmt::format("{}\"{}\" ({})", wanted.empty() ? "" : " or ", known.magic,
                                  known.title);
            size = std::max(size, known.magic.size());
        }
    }
    const std::string seen = quotedBytes(file.first(std::min(size, file.size())));
    const auto tell = [&wanted](const char* name, const char* what, const std::string& found,
                                const std::string& advice, std::uint64_t offset = 0) {
        return Finding{name, what, wanted, found, advice, offset};
    };
    if (isBlank(file)) {
        return tell("blank", "the file is blank", fmt::format("{:#04x} in every byte", file[0]),
                    "the part is empty or was not connected: read it again");
    }
    if (const Layout own = classify(file); own != Layout::Unknown) {
        return tell("wrong-layout", "wrong magic", quoted(own),
                    "the file names its own layout: leave --layout out");
    }
    const std::string_view text(reinterpret_cast<const char*>(file.data()), file.size());
    for (const Form& form : forms) {
        if (form.isOf(text)) {
            return tell(form.name, "the file is not the dump itself", form.what,
                        fmt::format("turn it into the dump: {}", form.command));
        }
    }
    for (const auto& [group, name, what] :
         {std::tuple{2U, "swapped-pairs", "bytes are swapped in pairs"},
          std::tuple{4U, "swapped-words", "bytes are swapped in 32-bit words"}}) {
        if (classify(swappedStart(file, group)) != Layout::Unknown) {
            return tell(name, what, seen, fmt::format("read it with --swap {}", group));
        }
    }
    if (looksLikeLensFile(file)) {
        return tell("lens-file", "a file that a cut has written, lensdata.dat",
                    "nine lens parameters", "give the dump that it was cut from");
    }
    const std::uint64_t damaged = damagedByte(file, layout);
    for (const Layout& known : knownLayouts()) {
        const std::uint64_t offset = offsetOf(known, file);
        if (offset == file.size()) {
            continue;
        }
        if (known.image == nullptr) {
            return tell("calibration-inside", "unknown magic",
                        fmt::format("{}; but a packed calibration begins at byte {}", seen, offset),
                        "the image's header is damaged or of another layout: read the part again",
                        damaged);
        }
        wanted = quoted(known) + " at byte 0";
        return tell("bytes-before-image", "the image does not begin with the file",
                    fmt::format("it at byte {}", offset),
                    fmt::format("read it with --skip {}", offset), offset);
    }
    return unknown ? tell("unknown-magic", "unknown magic", seen,
                          "name the --layout if you know it, else read the part again", damaged)
                   : tell("magic", "wrong magic", seen,
                          "leave --layout out if this is another layout, else read the part again",
                          damaged);
}

}  // namespace calcut::module
