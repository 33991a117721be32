#include "tools/dump/Diagnosis.h"

#include <algorithm>
#include <utility>

#include <fmt/format.h>

#include "cutter/CRC32.h"
#include "cutter/korvelineImage.h"
#include "cutter/v7Image.h"
#include "tools/dump/Findings.h"
#include "tools/dump/Hints.h"
#include "tools/dump/Names.h"
#include "tools/dump/Warnings.h"

namespace calcut::tools {

namespace {

using vantric::BlockOutcome;

/// Behind a fault the walk is not checked any more, and a file can be made of block headers.
constexpr std::size_t mostBlocks = 512;

/// Notes what the walk meets.
class Notes final : public vantric::WalkObserver {
  public:
    explicit Notes(Diagnosis& diagnosis) : about_(diagnosis) {}

    void fileHeader(const RXHeader& /*header*/) override {}  // also wanted of a refused one

    void block(const vantric::BlockSighting& sighting) override {
        if (about_.blocks.size() == mostBlocks) {
            return;
        }
        about_.blocks.push_back({sighting, blockName(sighting.header.id)});
        about_.blocks.back().sighting.offset += about_.payloadOffset;
        about_.blocks.back().sighting.payloadOffset += about_.payloadOffset;
    }

    void endMarker(std::uint64_t offset) override {
        about_.endMarker = about_.payloadOffset + offset;
    }

    void refused(const vantric::Refusal& why, std::uint32_t blockId) override {
        refusal = why;
        refusal.offset += about_.payloadOffset;
        refusedBlock = blockId;
    }

    vantric::Refusal refusal;
    std::uint32_t refusedBlock = vantric::noFailedBlock;

  private:
    Diagnosis& about_;
};

// ---------------------------------------------------------------------------------------- image --

/// Without a magic nothing else that a header says is worth a word; a file too short for a header
/// is better told by its magic, too.
bool isToldByMagic(const Diagnosis& about) {
    return about.image.refusal->cause == image::Cause::wrongMagic ||
           (about.image.refusal->cause == image::Cause::headerCutShort &&
            classify(about.file) != about.layout);
}

Finding imageFault(const Diagnosis& about) {
    const image::Refusal& refusal = *about.image.refusal;
    if (isToldByMagic(about)) {
        return wrongMagic(about.file, about.layout);
    }
    Particulars particulars;
    particulars.offset = refusal.offset;
    particulars.expected = refusal.expected;
    particulars.found = refusal.found;
    particulars.wanted = refusal.cause == image::Cause::payloadOutside
                             ? fmt::format("{}", about.image.payloadOffset)
                         : about.layout == Layout::V7 ? "version"
                                                      : "layout revision";
    return findingOf(refusal.cause, particulars);
}

/// What a cut makes of the payload before it looks into it.
void takePayload(Diagnosis& about) {
    const image::Record& image = about.image;
    if (image.payloadOffset < 0 ||
        static_cast<std::uint64_t>(image.payloadOffset) > about.file.size()) {
        return;
    }
    about.payloadOffset = static_cast<std::uint64_t>(image.payloadOffset);
    about.payload = about.file.subspan(about.payloadOffset, image.payloadPresent);
    if (about.payload.size() < image.payloadLength) {
        return;
    }
    Particulars particulars;
    particulars.offset = about.layout == Layout::V7
                             ? image::v7::fields[image::v7::fieldLength].offset
                             : image::korveline::fields[image::korveline::fieldLength].offset;
    if (image.blockId == image::signedBlockId) {
        particulars.expected = image::korveline::signatureArea + 1;
        particulars.found = about.payload.size();
        if (about.payload.size() < image::korveline::signatureArea) {
            about.faults.push_back(findingOf(OwnCause::noRoomForSignature, particulars));
            return;
        }
        about.signatureAreaSize = image::korveline::signatureArea;
        about.signatureLength = about.payload[about.payload.size() - about.signatureAreaSize];
    }
    if (about.payload.size() == about.signatureAreaSize) {
        about.faults.push_back(findingOf(
            about.payload.empty() ? OwnCause::emptyPayload : OwnCause::onlySignature, particulars));
    }
}

void lookAtImage(Diagnosis& about) {
    about.image = about.layout == Layout::V7 ? image::v7::locate(about.file, 0)
                                             : image::korveline::locate(about.file, 0);
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
    Particulars particulars;
    particulars.offset = about.payloadOffset + about.payload.size() - about.signatureAreaSize;
    particulars.expected = image::korveline::maxSignature;
    particulars.found = *about.signatureLength;
    if (particulars.found == 0) {
        about.faults.push_back(findingOf(OwnCause::signatureEmpty, particulars));
    } else if (particulars.found > particulars.expected) {
        about.faults.push_back(findingOf(OwnCause::signatureTooLong, particulars));
    }
}

// ---------------------------------------------------------------------------------- calibration --

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
const vantric::BlockSighting* refusedSighting(const Diagnosis& about, std::uint32_t id) {
    const auto found =
        std::find_if(about.blocks.rbegin(), about.blocks.rend(), [id](const DiagnosedBlock& block) {
            return block.sighting.header.id == id &&
                   block.sighting.outcome != BlockOutcome::notReached;
        });
    return found == about.blocks.rend() ? nullptr : &found->sighting;
}

Finding readFault(const Diagnosis& about, const Notes& notes) {
    const vantric::Refusal& refusal = notes.refusal;
    Particulars particulars{refusal.offset, refusal.expected, refusal.found, refusal.alsoExpected,
                            refusal.status};
    if (notes.refusedBlock != vantric::noFailedBlock) {
        particulars.blockId = notes.refusedBlock;
    }
    const vantric::BlockSighting* block = refusedSighting(about, notes.refusedBlock);
    switch (refusal.cause) {
        case vantric::Cause::wrongMagic:
            if (about.layout == Layout::Packed) {
                return wrongMagic(about.file, about.layout);
            }
            particulars.wanted = quotedMagic(Layout::Packed);
            particulars.seen = quotedBytes(about.payload.first(
                std::min(about.payload.size(), magicOf(Layout::Packed).size())));
            break;
        case vantric::Cause::noPixels:
        case vantric::Cause::tooManyPixels:
            particulars.seen = fmt::format("{} x {}", about.header ? about.header->columns : 0,
                                           about.header ? about.header->rows : 0);
            break;
        case vantric::Cause::unknownKind:
            // The walk has no block of a header that does not read; its id stands before the kind.
            particulars.blockId = about.file[refusal.offset - 1];
            break;
        case vantric::Cause::idsNotAscending:
            // Above nothing, -1, there is no refusal.
            particulars.seen = blockLabel(static_cast<std::uint32_t>(refusal.expected));
            break;
        case vantric::Cause::wrongContent:
            particulars.wanted = expectedElements(notes.refusedBlock);
            particulars.seen = fmt::format("{}", block != nullptr ? block->header.count : 0);
            break;
        case vantric::Cause::withoutFrequency:
        case vantric::Cause::valueUnset:
        case vantric::Cause::psfTooLarge:
            particulars.offset = block != nullptr ? block->offset : refusal.offset;
            break;
        default:
            break;
    }
    return findingOf(refusal.cause, particulars);
}

/// A block that the reader does not know. One with a payload, which is taken for the next header,
/// comes before one without.
const vantric::BlockSighting* unknownBlock(const Diagnosis& about) {
    const vantric::BlockSighting* unknown = nullptr;
    for (const DiagnosedBlock& block : about.blocks) {
        const bool better =
            unknown == nullptr || (unknown->payloadSize == 0 && block.sighting.payloadSize != 0);
        if (block.sighting.outcome == BlockOutcome::unknown && better) {
            unknown = &block.sighting;
        }
    }
    return unknown;
}

Finding unknownBlockFinding(const vantric::BlockSighting& block) {
    Particulars particulars;
    particulars.offset = block.offset;
    particulars.blockId = block.header.id;
    particulars.found = block.header.id;
    particulars.seen = fmt::format("{} x {}, {}", block.header.count, kindName(block.header.kind),
                                   byteCount(block.payloadSize));
    return findingOf(OwnCause::unknownBlock, particulars);
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
        about.faults.push_back(readFault(about, notes));
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
    about.failedBlockId = read.result.failedBlockId;
    about.record = std::move(read.record);
    noteReadFaults(about, notes);
    if (about.status == VANTRIC_OK && about.record->customFieldCount != 0) {
        about.customStatus = vantric_readCustomFields(about.payload.data(), about.payload.size(),
                                                      about.record.get());
    }
}

}  // namespace

const DiagnosedBlock* Diagnosis::readBlock(std::uint32_t id) const {
    const auto found =
        std::find_if(blocks.begin(), blocks.end(), [id](const DiagnosedBlock& block) {
            return block.sighting.header.id == id && block.sighting.outcome == BlockOutcome::read;
        });
    return found == blocks.end() ? nullptr : &*found;
}

std::uint64_t Diagnosis::trailingBytes() const {
    if (!endMarker) {
        return 0;
    }
    const std::uint64_t end = payloadOffset + payload.size() - signatureAreaSize;
    return end > *endMarker ? end - *endMarker - 1 : 0;
}

std::optional<Finding> whyNotCut(const Diagnosis& diagnosis) {
    if (!diagnosis.faults.empty()) {
        return diagnosis.faults.front();
    }
    return diagnosis.layout == Layout::Packed
               ? std::optional(findingOf(OwnCause::bareCalibration, {}))
               : std::nullopt;
}

Diagnosis diagnose(ByteView file, Layout layout, vantric::Wanted wanted) {
    Diagnosis about;
    about.file = file;
    about.layout = layout;
    if (layout == Layout::Unknown) {
        about.faults.push_back(wrongMagic(file, layout));
        return about;
    }
    if (layout == Layout::Packed) {
        about.payload = file;
    } else {
        lookAtImage(about);
    }
    // A payload that is nothing but signature area was told already.
    if (about.payload.size() > about.signatureAreaSize || layout == Layout::Packed) {
        readCalibration(about, wanted);
        lookAtSignature(about);
    }
    addWarnings(about);
    return about;
}

}  // namespace calcut::tools
