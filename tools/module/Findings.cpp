#include "tools/module/Findings.h"

#include <algorithm>

#include <fmt/format.h>

#include "tools/module/Diagnosis.h"
#include "tools/module/Names.h"
#include "tools/text/Escape.h"

namespace calcut::module {

namespace {

// ---------------------------------------------------------------------------------- calibration --

using vantric::Cause;

/// what, expected and found are patterns; readFault says what they can name.
struct Words {
    Cause cause;
    const char* name;
    const char* what;
    const char* expected;
    const char* found;
    const char* advice = askWriter;
};

constexpr const char* moreMemory = "try again with more memory free";
constexpr const char* noCalibration =
    "the module was never calibrated, or --layout names the wrong layout";

constexpr std::array readWords = {
    Words{Cause::none, "unexplained", "the calibration does not read", "", ""},
    Words{Cause::headerCutShort, "calibration-header-cut-short", "calibration header cut short",
          "{expectedBytes}", "{foundBytes}", noCalibration},
    Words{Cause::wrongMagic, "calibration-magic", "wrong calibration magic", "{magic}", "{start}",
          noCalibration},
    Words{Cause::wrongVersion, "calibration-version", "wrong calibration version", "{expected}",
          "{found}", "this calcut does not know that version of the format"},
    Words{Cause::noPixels, "no-pixels", "impossible sensor size", "at least 1 pixel", "{sensor}"},
    Words{Cause::tooManyPixels, "too-many-pixels", "impossible sensor size",
          "at most {expected} pixels", "{sensor}"},
    Words{Cause::recordTooSmall, "record-too-small", "larger than the record that it is read into",
          "{expected} pixels", "{found} pixels", moreMemory},
    Words{Cause::outOfMemory, "out-of-memory", "not enough memory", "", "", moreMemory},
    Words{Cause::blockHeaderCutShort, "calibration-cut-short", "calibration cut short",
          "a block or the end marker", "the end of the data after {foundBytes}"},
    Words{Cause::unknownKind, "unknown-kind", "{block} has an unknown kind", "0 to {expected}",
          "{found}"},
    Words{Cause::idsNotAscending, "block-order", "block ids do not ascend",
          "an id above {expectedBlock}", "{block}"},
    Words{Cause::wrongKind, "block-kind", "{block} has the wrong kind", "{expectedKind}",
          "{foundKind}"},
    Words{Cause::tooFewElements, "too-few-elements", "{block} has too few elements",
          "at least {expected}", "{found}"},
    Words{Cause::tooLarge, "block-too-large", "{block} is too large", "at most {expectedBytes}",
          "{foundBytes}"},
    Words{Cause::tooLargeToUnpack, "block-too-large-to-unpack", "{block} is too large to unpack",
          "at most {expectedBytes}", "{foundBytes}"},
    Words{Cause::payloadCutShort, "block-cut-short", "{block} is cut short", "{expectedBytes}",
          "{foundBytes}"},
    Words{Cause::wrongBits, "block-width", "{block} has an impossible width",
          "1 to {expected} bits", "{found}"},
    Words{Cause::tooFewWords, "too-few-words", "{block} is too short for its values",
          "{expected} values", "fewer in a payload whose size was rounded"},
    Words{Cause::wrongContent, "block-content", "{block} has the wrong number of elements",
          "{elements}", "{count}"},
    Words{Cause::tooManyCustomBlocks, "too-many-custom-blocks",
          "one custom block too many, {block}", "at most {expected}", "number {found}"},
    Words{Cause::missingBlock, "missing-block", "required {block} is missing",
          "it before the end marker", ""},
    Words{Cause::withoutFrequency, "block-without-frequency", "{block} has no frequency id block",
          "its frequency's first block, {expected}, before it", ""},
    Words{Cause::valueUnset, "value-unset", "{block} carries the mark of an unset value", "a value",
          ""},
    Words{Cause::incomplete, "refused", "the calibration as a whole is refused", "", ""},
    Words{Cause::psfTooLarge, "psf-too-large", "the PSF of the straylight profile is too large",
          "at most {expected} elements", "{found}"},
    Words{Cause::noPsf, "no-psf", "directions or PSF cannot be computed", "", ""},
};
constexpr bool standAtTheirCauses() {
    for (std::size_t i = 0; i < readWords.size(); ++i) {
        if (readWords[i].cause != static_cast<Cause>(i)) {
            return false;
        }
    }
    return readWords.size() == static_cast<std::size_t>(Cause::noPsf) + 1;
}
static_assert(standAtTheirCauses());

std::string kindNames(std::uint64_t kind, std::uint64_t other) {
    return kind == other ? kindName(kind)
                         : fmt::format("{} or {}", kindName(kind), kindName(other));
}

/// What a block must have for its copy function.
std::string expectedElements(std::uint32_t blockId) {
    constexpr unsigned longestText = VANTRIC_TEXT_BYTES - 2;  // a terminator, and room for one more
    constexpr unsigned straylight = 2 * VANTRIC_STRAYLIGHT_POINTS + 6;
    switch (blockId) {
        case RX_BLOCK_DATE:
            return "1";
        case RX_BLOCK_TEXT1:
        case RX_BLOCK_TEXT2:
            return fmt::format("at most {}", longestText);
        case RX_BLOCK_STRAYLIGHT:
            return fmt::to_string(straylight);
        default:
            break;
    }
    for (unsigned k = 0; k < VANTRIC_FREQUENCIES; ++k) {
        if (blockId == frequencyBlock(k, RX_FREQUENCY_WIGGLING_A) ||
            blockId == frequencyBlock(k, RX_FREQUENCY_WIGGLING_B)) {
            return fmt::format("1 and 3 for each of 1 to {} entries", VANTRIC_WIGGLING_ENTRIES);
        }
    }
    return "as many as its copy function takes";
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

Finding imageFault(const Diagnosis& about) {
    const image::Refusal& refusal = *about.image.refusal;
    const image::Layout& layout = *about.layout.image;
    const auto fault = [&refusal](const char* name, const std::string& what,
                                  const std::string& expected, const std::string& found,
                                  const char* advice) {
        return Finding{name, what, expected, found, advice, refusal.offset};
    };
    switch (refusal.cause) {
        case image::Cause::wrongVersion:
            return fault(
                "version", "wrong " + std::string(layout.fields[layout.versionField].name),
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
    if (refusal.cause == Cause::wrongMagic && about.layout == Layout::Packed) {
        return wrongMagic(about.file, about.layout);
    }
    const vantric::BlockSighting* block = refusedBlock(about, blockId);
    if (refusal.cause == Cause::unknownKind) {
        // The walk has no block of a header that does not read; its id stands before the kind.
        blockId = about.file[refusal.offset - 1];
    }
    const RXHeader header = about.header.value_or(RXHeader{});
    const std::string_view magic = Layout::Packed.magic;
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
            fmt::arg("magic", fmt::format("\"{}\"", magic)),
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
