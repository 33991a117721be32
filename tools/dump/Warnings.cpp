#include "tools/dump/Warnings.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <functional>
#include <span>

#include <fmt/format.h>

#include "calibration/packed/Block.h"
#include "cutter/korvelineImage.h"
#include "tools/dump/Findings.h"
#include "tools/dump/Names.h"

namespace calcut::tools {

namespace {

using Findings = std::vector<Finding>;

/// Offset and id of a block.
Particulars about(const vantric::BlockSighting& block) {
    Particulars particulars;
    particulars.offset = block.offset;
    particulars.blockId = block.header.id;
    return particulars;
}

void lookAtLens(const Diagnosis& dump, Findings& warnings) {
    const DiagnosedBlock* block = dump.readBlock(RX_BLOCK_LENS_PARAMETERS);
    if (block == nullptr || dump.record->lensParameters == nullptr) {
        return;
    }
    const std::span lens(dump.record->lensParameters, VANTRIC_LENS_PARAMETERS);
    const VantricImagerArea& area = dump.record->imagerArea;
    const auto [fx, fy, cx, cy] = std::array{lens[0], lens[1], lens[2], lens[3]};
    Particulars particulars = about(block->sighting);
    particulars.offset = block->sighting.payloadOffset;
    const auto usable = [](float length) { return length > 0.0F && std::isfinite(length); };
    if (!usable(fx) || !usable(fy)) {
        particulars.seen = fmt::format("fx {}, fy {}", fx, fy);
        warnings.push_back(findingOf(OwnCause::focalLength, particulars));
    }
    // Pixel centres have whole coordinates, so that the image begins half a pixel before 0.
    const auto inside = [](float at, std::uint32_t size) {
        return at >= -0.5F && at <= static_cast<float>(size) - 0.5F;
    };
    if (!inside(cx, area.columns) || !inside(cy, area.rows)) {
        particulars.offset += 2 * sizeof(float);
        particulars.wanted = fmt::format("it within {} x {} pixels", area.columns, area.rows);
        particulars.seen = fmt::format("cx {}, cy {}", cx, cy);
        warnings.push_back(findingOf(OwnCause::centre, particulars));
    }
}

void lookAtMask(const Diagnosis& dump, Findings& warnings) {
    const DiagnosedBlock* block = dump.readBlock(RX_BLOCK_MASK);
    const VantricImagerArea& area = dump.record->imagerArea;
    const std::span mask(dump.record->pixelMask, std::size_t{area.columns} * area.rows);
    if (block != nullptr && mask.data() != nullptr &&
        std::all_of(mask.begin(), mask.end(), std::logical_not())) {
        Particulars particulars = about(block->sighting);
        particulars.found = mask.size();
        warnings.push_back(findingOf(OwnCause::allMasked, particulars));
    }
}

/// The second pass does not tell which block it refused: the first one that it cannot take.
void lookAtCustomFields(const Diagnosis& dump, Findings& warnings) {
    if (dump.customStatus == VANTRIC_OK) {
        return;
    }
    Particulars particulars;
    std::uint32_t nextId = RX_BLOCK_FIRST_CUSTOM;
    for (const auto& [custom, name] : dump.blocks) {
        if (custom.outcome == vantric::BlockOutcome::custom && !particulars.blockId &&
            (custom.header.id != nextId++ || vantric::isPacked(custom.header.kind) ||
             custom.payloadSize > UINT8_MAX)) {
            particulars = about(custom);
            particulars.seen =
                fmt::format("block {}, {} in {}", custom.header.id, kindName(custom.header.kind),
                            byteCount(custom.payloadSize));
        }
    }
    particulars.status = dump.customStatus;
    warnings.push_back(findingOf(OwnCause::customFields, particulars));
}

void lookAtEnd(const Diagnosis& dump, Findings& warnings) {
    const std::uint64_t end = dump.payloadOffset + dump.payload.size() - dump.signatureAreaSize;
    Particulars particulars;
    particulars.offset = *dump.endMarker;
    if (*dump.endMarker >= end) {
        if (dump.status == VANTRIC_OK) {
            warnings.push_back(findingOf(OwnCause::endsInSignature, particulars));
        }
        return;
    }
    particulars.offset += 1;
    particulars.found = dump.trailingBytes();
    const bool couldBeSigned =
        dump.layout == Layout::Korveline && dump.image.blockId == image::plainBlockId;
    if (couldBeSigned && particulars.found == image::korveline::signatureArea) {
        warnings.push_back(findingOf(OwnCause::uncutSignature, particulars));
    } else if (particulars.found != 0) {
        warnings.push_back(findingOf(OwnCause::trailingBytes, particulars));
    }
}

}  // namespace

void addWarnings(Diagnosis& dump) {
    if (dump.record) {
        lookAtLens(dump, dump.warnings);
        lookAtMask(dump, dump.warnings);
        lookAtCustomFields(dump, dump.warnings);
    }
    if (dump.endMarker) {
        lookAtEnd(dump, dump.warnings);
    }
}

}  // namespace calcut::tools
