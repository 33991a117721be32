// What is odd about a file that reads, or about the parts of one that do.
#include <algorithm>
#include <array>
#include <cmath>
#include <functional>
#include <span>

#include <fmt/format.h>

#include "calibration/packed/Block.h"
#include "tools/module/Diagnosis.h"
#include "tools/module/Layout.h"
#include "tools/module/Names.h"
#include "tools/text/Escape.h"

namespace calcut::module {

namespace {

void lookAtLens(Diagnosis& dump) {
    const vantric::BlockSighting* block = dump.readBlock(RX_BLOCK_LENS_PARAMETERS);
    if (block == nullptr || dump.record->lensParameters == nullptr) {
        return;
    }
    constexpr const char* advice = "the cut is made all the same: check the lens parameters";
    const std::span lens(dump.record->lensParameters, VANTRIC_LENS_PARAMETERS);
    const VantricImagerArea& area = dump.record->imagerArea;
    const auto [fx, fy, cx, cy] = std::array{lens[0], lens[1], lens[2], lens[3]};
    const auto usable = [](float length) { return length > 0.0F && std::isfinite(length); };
    if (!usable(fx) || !usable(fy)) {
        dump.warnings.push_back({"focal-length", "focal length not positive and finite", "",
                                 fmt::format("fx {}, fy {}", fx, fy), advice, block->payloadOffset,
                                 block->header.id});
    }
    // Pixel centres have whole coordinates, so that the image begins half a pixel before 0.
    const auto inside = [](float at, std::uint32_t size) {
        return at >= -0.5F && at <= static_cast<float>(size) - 0.5F;
    };
    if (!inside(cx, area.columns) || !inside(cy, area.rows)) {
        dump.warnings.push_back({"centre", "centre outside the image",
                                 fmt::format("it within {} x {} pixels", area.columns, area.rows),
                                 fmt::format("cx {}, cy {}", cx, cy), advice,
                                 block->payloadOffset + 2 * sizeof(float), block->header.id});
    }
}

void lookAtMask(Diagnosis& dump) {
    const vantric::BlockSighting* block = dump.readBlock(RX_BLOCK_MASK);
    const VantricImagerArea& area = dump.record->imagerArea;
    const std::span mask(dump.record->pixelMask, std::size_t{area.columns} * area.rows);
    if (block != nullptr && mask.data() != nullptr &&
        std::all_of(mask.begin(), mask.end(), std::logical_not())) {
        dump.warnings.push_back({"all-masked", "every pixel is masked", "",
                                 fmt::format("{0} of {0} pixels", mask.size()), askWriter,
                                 block->offset, block->header.id});
    }
}

/// The second pass does not tell which block it refused: the first one that it cannot take.
void lookAtCustomFields(Diagnosis& dump) {
    if (dump.customStatus == VANTRIC_OK) {
        return;
    }
    Finding warning{"custom-fields", "custom fields cannot be read",
                    "ids in a row from 128 on, unpacked kinds, at most 255 bytes each", "",
                    "a cut is not touched by it, hosts that ask for the fields are"};
    warning.status = dump.customStatus;
    std::uint32_t nextId = RX_BLOCK_FIRST_CUSTOM;
    for (const vantric::BlockSighting& custom : dump.blocks) {
        const RXBlockHeader& header = custom.header;
        if (custom.outcome == vantric::BlockOutcome::custom && !warning.blockId &&
            (header.id != nextId++ || vantric::isPacked(header.kind) ||
             custom.payloadSize > UINT8_MAX)) {
            warning.blockId = header.id;
            warning.offset = custom.offset;
            warning.found = fmt::format("block {}, {} in {}", header.id, kindName(header.kind),
                                        text::byteCount(custom.payloadSize));
        }
    }
    dump.warnings.push_back(warning);
}

void lookAtEnd(Diagnosis& dump) {
    const std::uint64_t end = dump.payloadOffset + dump.payload.size() - dump.signatureAreaSize;
    const std::uint64_t trailing = dump.trailingBytes();
    const bool couldBeSigned = dump.layout.image != nullptr &&
                               dump.layout.image->signatureArea != 0 &&
                               dump.image.blockId == image::plainBlockId;
    if (*dump.endMarker >= end && dump.status == VANTRIC_OK) {
        dump.warnings.push_back(
            {"ends-in-signature", "the calibration ends inside the signature area",
             "its end marker before the area", "",
             "the cut succeeds, but its qov.spc does not read: ask whoever calibrated the module",
             *dump.endMarker});
    } else if (couldBeSigned && trailing == dump.layout.image->signatureArea) {
        dump.warnings.push_back(
            {"uncut-signature", "what looks like a signature area in a payload without",
             "a payload type with signature area", "128 bytes behind the end marker",
             "a cut writes them to qov.spc and makes no signature.bin: check the payload type",
             *dump.endMarker + 1});
    } else if (trailing != 0) {
        dump.warnings.push_back(
            {"trailing-bytes", "bytes behind the end marker", "", text::byteCount(trailing),
             "a cut writes them to qov.spc too; ask whoever calibrated the module",
             *dump.endMarker + 1});
    }
}

}  // namespace

void addWarnings(Diagnosis& dump) {
    if (dump.record) {
        lookAtLens(dump);
        lookAtMask(dump);
        lookAtCustomFields(dump);
    }
    if (dump.endMarker) {
        lookAtEnd(dump);
    }
}

}  // namespace calcut::module
