#include "tools/dump/Findings.h"

#include <array>

#include <fmt/format.h>

#include "tools/dump/Names.h"

namespace calcut::tools {

namespace {

constexpr const char* readAgain = "read the part again";
// Below a checksum that matches there is no reading error.
constexpr const char* askWriter =
    "reading the part again does not help where its checksum matches: ask whoever calibrated the "
    "module";

/// expected and found are patterns: {expected}, {found} and {also} are the numbers, with Bytes
/// behind them byte counts and with Kind names of payload kinds; {block} is the block's label;
/// {wanted} and {seen} are texts.
struct Words {
    const char* name;
    const char* what;
    const char* expected;
    const char* found;
    const char* advice = askWriter;
};

constexpr const char* moreMemory = "try again with more memory free";
constexpr const char* reorder = "read the part in byte order, or turn the bytes around";
constexpr const char* checkLens = "the cut is made all the same: check the lens parameters";
constexpr const char* reSign =
    "the module was not signed as its payload type says: ask whoever wrote it";
constexpr const char* noCalibration =
    "the module was never calibrated, or --layout names the wrong layout";

// In the order of image::Cause.
constexpr std::array imageWords = {
    Words{"image-header-cut-short", "image header cut short", "{expectedBytes}", "{foundBytes}",
          "read the whole part again, or name another --layout"},
    Words{"magic", "wrong magic", "{wanted}", "{seen}",
          "leave --layout out if this is another layout, else read the part again"},
    Words{"version", "wrong {wanted}", "{expected}", "{found}",
          "read the part again; if it stays, this calcut does not know the module's layout"},
    Words{"payload-outside", "payload outside the file", "{expectedBytes} from byte {wanted} on",
          "{foundBytes} of them in the file", "read the whole part again"},
    Words{"checksum", "CRC-32 mismatch", "{expected:#010x} (computed over the payload)",
          "{found:#010x} (stored)", readAgain},
};

// In the order of vantric::Cause.
constexpr std::array readWords = {
    Words{"unexplained", "the calibration does not read", "", ""},
    Words{"calibration-header-cut-short", "calibration header cut short", "{expectedBytes}",
          "{foundBytes}", noCalibration},
    Words{"calibration-magic", "wrong calibration magic", "{wanted}", "{seen}", noCalibration},
    Words{"calibration-version", "wrong calibration version", "{expected}", "{found}",
          "this calcut does not know that version of the format"},
    Words{"no-pixels", "impossible sensor size", "at least 1 pixel", "{seen}"},
    Words{"too-many-pixels", "impossible sensor size", "at most {expected} pixels", "{seen}"},
    Words{"record-too-small", "larger than the record that it is read into", "{expected} pixels",
          "{found} pixels", moreMemory},
    Words{"out-of-memory", "not enough memory", "", "", moreMemory},
    Words{"calibration-cut-short", "calibration cut short", "a block or the end marker",
          "the end of the data after {foundBytes}"},
    Words{"unknown-kind", "{block} has an unknown kind", "0 to {expected}", "{found}"},
    Words{"block-order", "block ids do not ascend", "an id above {seen}", "{block}"},
    Words{"block-kind", "{block} has the wrong kind", "{expectedKind}", "{foundKind}"},
    Words{"too-few-elements", "{block} has too few elements", "at least {expected}", "{found}"},
    Words{"block-too-large", "{block} is too large", "at most {expectedBytes}", "{foundBytes}"},
    Words{"block-too-large-to-unpack", "{block} is too large to unpack", "at most {expectedBytes}",
          "{foundBytes}"},
    Words{"block-cut-short", "{block} is cut short", "{expectedBytes}", "{foundBytes}"},
    Words{"block-width", "{block} has an impossible width", "1 to {expected} bits", "{found}"},
    Words{"too-few-words", "{block} is too short for its values", "{expected} values",
          "fewer in a payload whose size was rounded"},
    Words{"block-content", "{block} has the wrong number of elements", "{wanted}", "{seen}"},
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

// In the order of OwnCause.
constexpr std::array ownWords = {
    Words{"unknown-magic", "unknown magic", "{wanted}", "{seen}",
          "name the --layout if you know it, else read the part again"},
    Words{"blank", "the file is blank", "{wanted}", "{seen} in every byte",
          "the part is empty or was not connected: read it again"},
    Words{"wrong-layout", "wrong magic", "{wanted}", "{seen}",
          "the file names its own layout: leave --layout out"},
    Words{"swapped-pairs", "bytes are swapped in pairs", "{wanted}", "{seen}", reorder},
    Words{"swapped-words", "bytes are swapped in 32-bit words", "{wanted}", "{seen}", reorder},
    Words{"lens-file", "a file that a cut has written, lensdata.dat", "{wanted}",
          "nine lens parameters", "give the dump that it was cut from"},
    Words{"bytes-before-image", "the image does not begin with the file", "{wanted} at byte 0",
          "it at byte {found}", "leave out the bytes in front of it (tail -c)"},
    Words{"calibration-inside", "unknown magic", "{wanted}",
          "{seen}; but a packed calibration begins at byte {found}",
          "the image's header is damaged or of another layout: read the part again"},
    Words{"bare-calibration", "a bare packed calibration", "an image around it", "",
          "there is nothing to cut: this is what a cut writes as qov.spc"},
    Words{"empty-payload", "empty payload", "a calibration", "0 bytes",
          "the module was never calibrated"},
    Words{"no-room-for-signature", "payload too short for its signature area",
          "at least {expectedBytes}", "{foundBytes}", reSign},
    Words{"only-signature", "payload holds only its signature area", "a calibration", "0 bytes",
          "the module was never calibrated"},
    Words{"signature-empty", "signature area without signature",
          "a signature length of 1 to {expected}", "{found}", reSign},
    Words{"signature-too-long", "signature longer than its area",
          "a signature length of 1 to {expected}", "{found}", reSign},
    Words{"unknown-block", "unknown block id {found}", "", "{seen} that no reader steps over",
          "the bytes before it are damaged, or whoever calibrated the module wrote a block that "
          "no reader knows"},
    Words{"focal-length", "focal length not positive and finite", "", "{seen}", checkLens},
    Words{"centre", "centre outside the image", "{wanted}", "{seen}", checkLens},
    Words{"all-masked", "every pixel is masked", "", "{found} of {found} pixels"},
    Words{"custom-fields", "custom fields cannot be read",
          "ids in a row from 128 on, unpacked kinds, at most 255 bytes each", "{seen}",
          "a cut is not touched by it, hosts that ask for the fields are"},
    Words{"trailing-bytes", "bytes behind the end marker", "", "{foundBytes}",
          "a cut writes them to qov.spc too; ask whoever calibrated the module"},
    Words{"uncut-signature", "what looks like a signature area in a payload without",
          "a payload type with signature area", "128 bytes behind the end marker",
          "a cut writes them to qov.spc and makes no signature.bin: check the payload type"},
    Words{"ends-in-signature", "the calibration ends inside the signature area",
          "its end marker before the area", "",
          "the cut succeeds, but its qov.spc does not read: ask whoever calibrated the module"},
};
static_assert(ownWords.size() == static_cast<std::size_t>(OwnCause::count));

std::string kindNames(std::uint64_t kind, std::uint64_t other) {
    return kind == other ? kindName(kind)
                         : fmt::format("{} or {}", kindName(kind), kindName(other));
}

Finding findingOf(const Words& words, const Particulars& about) {
    const auto fill = [&about](const char* pattern) {
        return fmt::format(
            fmt::runtime(pattern), fmt::arg("expected", about.expected),
            fmt::arg("found", about.found), fmt::arg("expectedBytes", byteCount(about.expected)),
            fmt::arg("foundBytes", byteCount(about.found)),
            fmt::arg("expectedKind", kindNames(about.expected, about.alsoExpected)),
            fmt::arg("foundKind", kindName(about.found)),
            fmt::arg("block", about.blockId ? blockLabel(*about.blockId) : "a block"),
            fmt::arg("wanted", about.wanted), fmt::arg("seen", about.seen));
    };
    Finding finding;
    finding.name = words.name;
    finding.what = fill(words.what);
    finding.expected = fill(words.expected);
    finding.found = fill(words.found);
    finding.advice = words.advice;
    finding.offset = about.offset;
    finding.status = about.status;
    finding.blockId = about.blockId;
    return finding;
}

}  // namespace

Finding findingOf(image::Cause cause, const Particulars& particulars) {
    return findingOf(imageWords.at(static_cast<std::size_t>(cause)), particulars);
}

Finding findingOf(vantric::Cause cause, const Particulars& particulars) {
    return findingOf(readWords.at(static_cast<std::size_t>(cause)), particulars);
}

Finding findingOf(OwnCause cause, const Particulars& particulars) {
    return findingOf(ownWords.at(static_cast<std::size_t>(cause)), particulars);
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

}  // namespace calcut::tools
