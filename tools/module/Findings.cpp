#include "tools/module/Findings.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>

#include <fmt/format.h>

#include "tools/module/Diagnosis.h"
#include "tools/module/Layout.h"
#include "tools/module/Names.h"
#include "tools/text/Escape.h"

namespace calcut::module {

namespace {

// ---------------------------------------------------------------------------------------- image --

constexpr std::size_t longestMagic = 9;

bool isBlank(files::ByteView file) {
    return !file.empty() && (file[0] == 0x00 || file[0] == 0xFF) &&
           std::all_of(file.begin(), file.end(),
                       [&](std::uint8_t byte) { return byte == file[0]; });
}

/// Whether a magic appears once the bytes of each group are turned around.
bool isSwapped(files::ByteView file, std::size_t group) {
    std::array<std::uint8_t, 12> start{};
    const std::size_t size = std::min(file.size(), start.size()) / group * group;
    for (std::size_t at = 0; at < size; ++at) {
        start[at] = file[at - at % group + group - 1 - at % group];
    }
    return classify(files::ByteView(start).first(size)) != Layout::Unknown;
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
           values[0] >= 1.0F && values[1] >= 1.0F;
}

std::string quoted(Layout layout) {
    return fmt::format("\"{}\"", traitsOf(layout).magic);
}

/// Where the magic of a layout stands; the file's size when it does not.
std::uint64_t offsetOf(Layout layout, files::ByteView file) {
    const std::string_view magic = traitsOf(layout).magic;
    const auto found = std::search(file.begin(), file.end(), magic.begin(), magic.end());
    return static_cast<std::uint64_t>(found - file.begin());
}

// ---------------------------------------------------------------------------------- calibration --

/// what, expected and found are patterns; readFault says what they can name.
struct Words {
    const char* name;
    const char* what;
    const char* expected;
    const char* found;
    const char* advice = askWriter;
};

constexpr const char* moreMemory = "try again with more memory free";
constexpr const char* noCalibration =
    "the module was never calibrated, or --layout names the wrong layout";

// In the order of vantric::Cause.
constexpr std::array readWords = {
    Words{"unexplained", "the calibration does not read", "", ""},
    Words{"calibration-header-cut-short", "calibration header cut short", "{expectedBytes}",
          "{foundBytes}", noCalibration},
    Words{"calibration-magic", "wrong calibration magic", "{magic}", "{start}", noCalibration},
    Words{"calibration-version", "wrong calibration version", "{expected}", "{found}",
          "this calcut does not know that version of the format"},
    Words{"no-pixels", "impossible sensor size", "at least 1 pixel", "{sensor}"},
    Words{"too-many-pixels", "impossible sensor size", "at most {expected} pixels", "{sensor}"},
    Words{"record-too-small", "larger than the record that it is read into", "{expected} pixels",
          "{found} pixels", moreMemory},
    Words{"out-of-memory", "not enough memory", "", "", moreMemory},
    Words{"calibration-cut-short", "calibration cut short", "a block or the end marker",
          "the end of the data after {foundBytes}"},
    Words{"unknown-kind", "{block} has an unknown kind", "0 to {expected}", "{found}"},
    Words{"block-order", "block ids do not ascend", "an id above {expectedBlock}", "{block}"},
    Words{"block-kind", "{block} has the wrong kind", "{expectedKind}", "{foundKind}"},
    Words{"too-few-elements", "{block} has too few elements", "at least {expected}", "{found}"},
    Words{"block-too-large", "{block} is too large", "at most {expectedBytes}", "{foundBytes}"},
    Words{"block-too-large-to-unpack", "{block} is too large to unpack", "at most {expectedBytes}",
          "{foundBytes}"},
    Words{"block-cut-short", "{block} is cut short", "{expectedBytes}", "{foundBytes}"},
    Words{"block-width", "{block} has an impossible width", "1 to {expected} bits", "{found}"},
    Words{"too-few-words", "{block} is too short for its values", "{expected} values",
          "fewer in a payload whose size was rounded"},
    Words{"block-content", "{block} has the wrong number of elements", "{elements}", "{count}"},
    Words{"too-many-custom-blocks", "one custom block too many, {block}", "at most {expected}",
          "number {found}"},
    Words{"missing-block", "required {block} is missing", "it before the end marker", ""},
    Words{"block-without-frequency", "{block} has no frequency id block",
          "its frequency's first block, {expected}, before it", ""},
    Words{"value-unset", "{block} carries the mark of an unset value", "a value", ""},
    Words{"refused", "the calibration as a whole is refused", "", ""},
    Words{"psf-too-large", "the PSF of the straylight profile is too large",
          "at most {expected} elements", "{found}"},
    Words{"no-psf", "directions or PSF cannot be computed", "", ""},
};
static_assert(readWords.size() == static_cast<std::size_t>(vantric::Cause::noPsf) + 1);

std::string kindNames(std::uint64_t kind, std::uint64_t other) {
    return kind == other ? kindName(kind)
                         : fmt::format("{} or {}", kindName(kind), kindName(other));
}

/// What a block must have for its copy function.
const char* expectedElements(std::uint32_t blockId) {
    const bool isText = blockId == RX_BLOCK_TEXT1 || blockId == RX_BLOCK_TEXT2;
    return blockId == RX_BLOCK_DATE         ? "1"
           : isText                         ? "at most 63"
           : blockId == RX_BLOCK_STRAYLIGHT ? "32"
                                            : "1 and 3 for each entry (4, 7, 10, 13 or 16)";
}

/// The block that a refusal is about: the last one of that id, as a repeated id is met behind its
/// first.
const vantric::BlockSighting* refusedBlock(const Diagnosis& about,
                                           std::optional<std::uint32_t> id) {
    const auto found = std::find_if(
        about.blocks.rbegin(), about.blocks.rend(), [id](const vantric::BlockSighting& block) {
            return block.header.id == id && block.outcome != vantric::BlockOutcome::notReached;
        });
    return found == about.blocks.rend() ? nullptr : &*found;
}

}  // namespace

std::string quotedBytes(files::ByteView bytes) {
    std::string text = "\"";
    for (const std::uint8_t byte : bytes) {
        text += byte == '"' ? "\\\"" : text::escapeBytes(std::string(1, static_cast<char>(byte)));
    }
    return text + '"';
}

Finding wrongMagic(files::ByteView file, Layout layout) {
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
    for (const Layout known : {Layout::V7, Layout::Korveline}) {
        if (const std::uint64_t offset = offsetOf(known, file); offset < file.size()) {
            return {"bytes-before-image",
                    "the image does not begin with the file",
                    quoted(known) + " at byte 0",
                    fmt::format("it at byte {}", offset),
                    "leave out the bytes in front of it (tail -c)",
                    offset};
        }
    }
    if (const std::uint64_t offset = offsetOf(Layout::Packed, file); offset < file.size()) {
        return {"calibration-inside",
                "unknown magic",
                wanted,
                fmt::format("{}; but a packed calibration begins at byte {}", seen, offset),
                "the image's header is damaged or of another layout: read the part again",
                offset};
    }
    return unknown
               ? Finding{"unknown-magic", "unknown magic", wanted, seen,
                         "name the --layout if you know it, else read the part again"}
               : Finding{"magic", "wrong magic", wanted, seen,
                         "leave --layout out if this is another layout, else read the part again"};
}

Finding imageFault(const Diagnosis& about) {
    const image::Refusal& refusal = *about.image.refusal;
    const auto fault = [&refusal](const char* name, const char* what, const std::string& expected,
                                  const std::string& found, const char* advice) {
        return Finding{name, what, expected, found, advice, refusal.offset};
    };
    switch (refusal.cause) {
        case image::Cause::wrongVersion:
            return fault(
                "version", about.layout == Layout::V7 ? "wrong version" : "wrong layout revision",
                fmt::to_string(refusal.expected), fmt::to_string(refusal.found),
                "read the part again; if it stays, this calcut does not know the module's layout");
        case image::Cause::payloadOutside:
            return fault("payload-outside", "payload outside the file",
                         fmt::format("{} from byte {} on", text::byteCount(refusal.expected),
                                     about.image.payloadOffset),
                         text::byteCount(refusal.found) + " of them in the file",
                         "read the whole part again");
        case image::Cause::checksum:
            return fault("checksum", "CRC-32 mismatch",
                         fmt::format("{:#010x} (computed over the payload)", refusal.expected),
                         fmt::format("{:#010x} (stored)", refusal.found), "read the part again");
        default:
            // Without a magic nothing else that a header says is worth a word; a file too short
            // for a header is better told by its magic, too.
            return classify(about.file) != about.layout
                       ? wrongMagic(about.file, about.layout)
                       : fault("image-header-cut-short", "image header cut short",
                               text::byteCount(refusal.expected), text::byteCount(refusal.found),
                               "read the whole part again, or name another --layout");
    }
}

Finding readFault(const Diagnosis& about, const vantric::Refusal& refusal,
                  std::optional<std::uint32_t> blockId) {
    if (refusal.cause == vantric::Cause::wrongMagic && about.layout == Layout::Packed) {
        return wrongMagic(about.file, about.layout);
    }
    const vantric::BlockSighting* block = refusedBlock(about, blockId);
    if (refusal.cause == vantric::Cause::unknownKind) {
        // The walk has no block of a header that does not read; its id stands before the kind.
        blockId = about.file[refusal.offset - 1];
    }
    const RXHeader header = about.header.value_or(RXHeader{});
    const std::string_view magic = traitsOf(Layout::Packed).magic;
    const Words& words = readWords.at(static_cast<std::size_t>(refusal.cause));
    const auto fill = [&](const char* pattern) {
        return fmt::format(
            fmt::runtime(pattern), fmt::arg("expected", refusal.expected),
            fmt::arg("found", refusal.found),
            fmt::arg("expectedBytes", text::byteCount(refusal.expected)),
            fmt::arg("foundBytes", text::byteCount(refusal.found)),
            fmt::arg("expectedKind", kindNames(refusal.expected, refusal.alsoExpected)),
            fmt::arg("foundKind", kindName(refusal.found)),
            fmt::arg("expectedBlock", blockLabel(static_cast<std::uint32_t>(refusal.expected))),
            fmt::arg("block", blockId ? blockLabel(*blockId) : "a block"),
            fmt::arg("elements", expectedElements(blockId.value_or(0))),
            fmt::arg("count", block != nullptr ? block->header.count : 0),
            fmt::arg("sensor", fmt::format("{} x {}", header.columns, header.rows)),
            fmt::arg("magic", quoted(Layout::Packed)),
            fmt::arg("start", quotedBytes(about.payload.first(
                                  std::min(about.payload.size(), magic.size())))));
    };
    // What is refused when the walk is over is told with its end, or without a place.
    const bool isOver = block != nullptr && block->outcome == vantric::BlockOutcome::read;
    return {words.name,        fill(words.what), fill(words.expected),
            fill(words.found), words.advice,     isOver ? block->offset : refusal.offset,
            blockId,           refusal.status};
}

std::string describe(const Finding& finding) {
    std::string line =
        fmt::format("{} at byte {} ({:#x})", finding.what, finding.offset, finding.offset);
    if (!finding.expected.empty()) {
        line += ": expected " + finding.expected;
    }
    if (!finding.found.empty()) {
        line += (finding.expected.empty() ? ": found " : ", found ") + finding.found;
    }
    // A sensor of 2^31 pixels or more is refused with its pixel count, which is no status.
    if (finding.status != VANTRIC_OK && finding.status <= VANTRIC_WARN_PARTIAL) {
        line += " [" + statusName(finding.status) + "]";
    }
    return line + "; " + finding.advice;
}

}  // namespace calcut::module
