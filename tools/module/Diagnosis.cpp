#include "tools/module/Diagnosis.h"

#include <algorithm>
#include <utility>

#include <fmt/format.h>

#include "cutter/CRC32.h"
#include "tools/module/Names.h"
#include "tools/text/Escape.h"
#include "tools/text/Terminal.h"

namespace calcut::module {

namespace {

using vantric::BlockOutcome;

constexpr const char* reSign =
    "the module was not signed as its payload type says: ask whoever wrote it";

/// Behind a fault the walk is not checked any more, and a file can be made of block headers.
constexpr std::size_t mostBlocks = 512;

std::optional<std::uint32_t> idOrNone(std::uint32_t blockId) {
    return blockId == vantric::noFailedBlock ? std::nullopt : std::optional(blockId);
}

/// Notes what the walk meets.
class Notes final : public vantric::WalkObserver {
  public:
    explicit Notes(Diagnosis& diagnosis) : about_(diagnosis) {}

    void block(const vantric::BlockSighting& sighting) override {
        if (about_.blocks.size() < mostBlocks) {
            about_.blocks.push_back(sighting);
            about_.blocks.back().offset += about_.payloadOffset;
            about_.blocks.back().payloadOffset += about_.payloadOffset;
        }
    }

    void endMarker(std::uint64_t offset) override {
        about_.endMarker = about_.payloadOffset + offset;
    }

    void refused(const vantric::Refusal& why, std::uint32_t blockId) override {
        refusal = why;
        refusal.offset += about_.payloadOffset;
        refusedBlock = idOrNone(blockId);
    }

    vantric::Refusal refusal;
    std::optional<std::uint32_t> refusedBlock;

  private:
    Diagnosis& about_;
};

// ---------------------------------------------------------------------------------------- image --

/// What a cut makes of the payload before it looks into it.
void takePayload(Diagnosis& about) {
    const image::Record& image = about.image;
    const bool beginsInside = image.payloadOffset >= 0 &&
                              static_cast<std::uint64_t>(image.payloadOffset) <= about.file.size();
    if (beginsInside) {
        about.payloadOffset = static_cast<std::uint64_t>(image.payloadOffset);
        about.payload = about.file.subspan(about.payloadOffset, image.payloadPresent);
    }
    // An empty one may lie anywhere.
    if (about.payload.size() < image.payloadLength) {
        return;
    }
    const image::Layout& layout = *about.layout.image;
    const std::uint64_t lengthField = layout.fields[layout.lengthField].offset;
    if (image.blockId == image::signedBlockId && layout.signatureArea != 0) {
        const std::uint64_t area = layout.signatureArea;
        if (about.payload.size() < area) {
            about.faults.push_back({"no-room-for-signature",
                                    "payload too short for its signature area",
                                    "at least " + text::byteCount(area + 1),
                                    text::byteCount(about.payload.size()), reSign, lengthField});
            return;
        }
        about.signatureAreaSize = area;
        about.signatureLength = about.payload[about.payload.size() - area];
    }
    if (about.payload.size() == about.signatureAreaSize) {
        const bool empty = about.payload.empty();
        about.faults.push_back({empty ? "empty-payload" : "only-signature",
                                empty ? "empty payload" : "payload holds only its signature area",
                                "a calibration", "0 bytes", "the module was never calibrated",
                                lengthField});
    }
}

void lookAtImage(Diagnosis& about) {
    about.image = about.layout.image->locate(about.file, 0);
    if (about.image.refusal) {
        about.faults.push_back(imageFault(about));
    }
    if (!about.image.hasHeader) {
        return;
    }
    takePayload(about);
    // The checks did not come that far, but whoever looks for the damage wants to know.
    if (!about.image.computedCrc && about.payload.size() == about.image.payloadLength) {
        about.image.computedCrc = crc32Of(about.payload.data(), about.payload.size());
    }
}

void lookAtSignature(Diagnosis& about) {
    if (!about.signatureLength) {
        return;
    }
    const std::size_t longest = about.signatureAreaSize - 1;
    const std::size_t length = *about.signatureLength;
    if (length == 0 || length > longest) {
        about.faults.push_back(
            {length == 0 ? "signature-empty" : "signature-too-long",
             length == 0 ? "signature area without signature" : "signature longer than its area",
             fmt::format("a signature length of 1 to {}", longest), fmt::to_string(length), reSign,
             about.payloadOffset + about.payload.size() - about.signatureAreaSize});
    }
}

// ---------------------------------------------------------------------------------- calibration --

/// A block that the reader does not know. One with a payload, which is taken for the next header,
/// comes before one without.
const vantric::BlockSighting* unknownBlock(const Diagnosis& about) {
    const vantric::BlockSighting* unknown = nullptr;
    for (const vantric::BlockSighting& block : about.blocks) {
        const bool better =
            unknown == nullptr || (unknown->payloadSize == 0 && block.payloadSize != 0);
        if (block.outcome == BlockOutcome::unknown && better) {
            unknown = &block;
        }
    }
    return unknown;
}

Finding unknownBlockFinding(const vantric::BlockSighting& block) {
    const RXBlockHeader& header = block.header;
    Finding finding{"unknown-block", fmt::format("unknown block id {}", header.id)};
    finding.found = fmt::format("{} x {}, {} that no reader steps over", header.count,
                                kindName(header.kind), text::byteCount(block.payloadSize));
    finding.advice =
        "the bytes before it are damaged, or whoever calibrated the module wrote a block that no "
        "reader knows";
    finding.offset = block.offset;
    finding.blockId = header.id;
    return finding;
}

/// Whether what refused a calibration can come from a header read at the wrong place.
bool canComeFromHeaders(vantric::Cause cause) {
    return cause != vantric::Cause::psfTooLarge && cause != vantric::Cause::noPsf &&
           cause != vantric::Cause::outOfMemory;
}

void noteReadFaults(Diagnosis& about, const Notes& notes) {
    const vantric::BlockSighting* unknown = unknownBlock(about);
    const bool derailed = unknown != nullptr && unknown->payloadSize != 0 &&
                          notes.refusal.refused() && canComeFromHeaders(notes.refusal.cause);
    if (unknown != nullptr) {
        (derailed ? about.faults : about.warnings).push_back(unknownBlockFinding(*unknown));
    }
    if (notes.refusal.refused()) {
        about.faults.push_back(readFault(about, notes.refusal, notes.refusedBlock));
        if (derailed) {
            about.faults.back().what.insert(0, "as a consequence, ");
        }
    }
}

void readCalibration(Diagnosis& about, vantric::Wanted wanted) {
    Notes notes(about);
    RXHeader header{};
    VantricStream stream = vantric_createStreamFromData(about.payload.data(), about.payload.size());
    if (vantric_readRXHeader(&stream, &header) == VANTRIC_OK) {
        about.header = header;
    }
    vantric::PackedRead read =
        vantric::readPacked(about.payload.data(), about.payload.size(), wanted, &notes);
    about.status = read.result.status;
    about.failedBlockId = idOrNone(read.result.failedBlockId);
    about.record = std::move(read.record);
    noteReadFaults(about, notes);
    const bool isWhole = about.record && about.record->pixelMask != nullptr &&
                         about.record->lensParameters != nullptr;
    if (about.status == VANTRIC_OK && !isWhole) {
        about.faults.push_back(readFault(
            about, {VANTRIC_ERR_BUFFER_TOO_SMALL, vantric::Cause::outOfMemory}, std::nullopt));
    }
    if (about.status == VANTRIC_OK && isWhole && about.record->customFieldCount != 0) {
        about.customStatus = vantric_readCustomFields(about.payload.data(), about.payload.size(),
                                                      about.record.get());
    }
}

}  // namespace

const vantric::BlockSighting* Diagnosis::readBlock(std::uint32_t id) const {
    const auto found =
        std::find_if(blocks.begin(), blocks.end(), [id](const vantric::BlockSighting& block) {
            return block.header.id == id && block.outcome == BlockOutcome::read;
        });
    return found == blocks.end() ? nullptr : &*found;
}

files::ByteView Diagnosis::mask() const {
    // There may be no memory for a mask.
    if (!record || record->pixelMask == nullptr) {
        return {};
    }
    return {record->pixelMask, std::size_t{record->imagerArea.columns} * record->imagerArea.rows};
}

std::uint64_t Diagnosis::trailingBytes() const {
    if (!endMarker) {
        return 0;
    }
    const std::uint64_t end = payloadOffset + payload.size() - signatureAreaSize;
    return end > *endMarker ? end - *endMarker - 1 : 0;
}

std::optional<Finding> whyNotCut(const Diagnosis& diagnosis) {
    if (diagnosis.cuttable()) {
        return std::nullopt;
    }
    return diagnosis.intact()
               ? Finding{"bare-calibration", "a bare packed calibration", "an image around it", "",
                         "there is nothing to cut: this is what a cut writes as qov.spc"}
               : diagnosis.faults.front();
}

Diagnosis diagnose(files::ByteView file, const Layout& layout, vantric::Wanted wanted) {
    Diagnosis about;
    about.file = file;
    about.layout = layout;
    if (layout == Layout::Unknown) {
        about.faults.push_back(wrongMagic(file, layout));
        return about;
    }
    if (layout.image == nullptr) {
        about.payload = file;
    } else {
        lookAtImage(about);
    }
    // A payload that is nothing but signature area was told already.
    if (about.payload.size() > about.signatureAreaSize || layout.image == nullptr) {
        readCalibration(about, wanted);
        lookAtSignature(about);
    }
    if (about.image.refusal && about.image.refusal->cause == image::Cause::checksum) {
        about.faults.front().found += explainChecksum(about);
    }
    if (!about.record && about.faults.empty()) {
        about.faults.push_back(readFault(about, {}, std::nullopt));
    }
    addWarnings(about);
    return about;
}

std::unique_ptr<Module> loadModule(const files::Input& input, const Reading& reading,
                                   Faults faults) {
    if (input.refusal) {
        throw text::Refused(input.path, *input.refusal);
    }
    text::printNote(input.path, "reading");
    auto module = std::make_unique<Module>(files::loadDump(input.path, reading.intake),
                                           reading.layout, vantric::Wanted::everything);
    const Diagnosis& diagnosis = module->diagnosis;
    if (faults == Faults::untold || diagnosis.intact()) {
        return module;
    }
    const bool letThrough = faults == Faults::tolerated ||
                            (faults == Faults::toleratedInImage && diagnosis.status == VANTRIC_OK);
    if (!letThrough || !diagnosis.record) {
        throw text::Refused(input.path, describe(diagnosis.faults.front()));
    }
    for (const Finding& fault : diagnosis.faults) {
        // A tolerated fault may spoil every number, and is told even when quiet.
        (faults == Faults::tolerated ? text::printError : text::printWarning)(input.path,
                                                                              describe(fault));
    }
    return module;
}

}  // namespace calcut::module
