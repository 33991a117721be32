#include "tools/dump/Warnings.h"

#include <algorithm>
#include <cmath>

#include <fmt/format.h>

#include "cutter/korvelineImage.h"
#include "tools/dump/Findings.h"
#include "tools/dump/Names.h"

namespace calcut::tools {

namespace {

constexpr std::size_t centreIndex = 2;  // of cx in the lens parameters; fx and fy come first

class Warnings {
  public:
    explicit Warnings(const Diagnosis& diagnosis) : about_(diagnosis) {}

    std::vector<Finding> take() {
        if (about_.record) {
            lookAtLens();
            lookAtMask();
            lookAtCustomFields();
        }
        if (about_.endMarker) {
            lookAtEnd();
        }
        return std::move(warnings_);
    }

  private:
    void warn(OwnCause cause, const Particulars& particulars) {
        warnings_.push_back(findingOf(cause, particulars));
    }

    void lookAtLens() {
        const DiagnosedBlock* block = about_.readBlock(RX_BLOCK_LENS_PARAMETERS);
        if (block == nullptr) {
            return;
        }
        const float* lens = about_.record->lensParameters;
        const float* centre = lens + centreIndex;
        const VantricImagerArea& area = about_.record->imagerArea;
        Particulars particulars;
        particulars.offset = block->sighting.payloadOffset;
        particulars.blockId = block->sighting.header.id;
        const auto usable = [](float length) { return length > 0.0F && std::isfinite(length); };
        if (!usable(lens[0]) || !usable(lens[1])) {
            particulars.seen = fmt::format("fx {}, fy {}", lens[0], lens[1]);
            warn(OwnCause::focalLength, particulars);
        }
        // Pixel centres have whole coordinates, so that the image begins half a pixel before 0.
        const auto inside = [](float at, std::uint32_t size) {
            return at >= -0.5F && at <= static_cast<float>(size) - 0.5F;
        };
        if (!inside(centre[0], area.columns) || !inside(centre[1], area.rows)) {
            particulars.offset += centreIndex * sizeof(float);
            particulars.wanted = fmt::format("it within {} x {} pixels", area.columns, area.rows);
            particulars.seen = fmt::format("cx {}, cy {}", centre[0], centre[1]);
            warn(OwnCause::centre, particulars);
        }
    }

    void lookAtMask() {
        const DiagnosedBlock* block = about_.readBlock(RX_BLOCK_MASK);
        const VantricImagerArea& area = about_.record->imagerArea;
        const std::uint64_t pixels = std::uint64_t{area.columns} * area.rows;
        const std::uint8_t* mask = about_.record->pixelMask;
        if (block != nullptr && mask != nullptr &&
            std::all_of(mask, mask + pixels, [](std::uint8_t pixel) { return pixel == 0; })) {
            Particulars particulars;
            particulars.offset = block->sighting.offset;
            particulars.blockId = block->sighting.header.id;
            particulars.found = pixels;
            warn(OwnCause::allMasked, particulars);
        }
    }

    void lookAtCustomFields() {
        if (about_.customStatus == VANTRIC_OK) {
            return;
        }
        // The second pass does not tell which block it refused: the first one that it cannot take.
        std::uint32_t nextId = RX_BLOCK_FIRST_CUSTOM;
        for (const DiagnosedBlock& block : about_.blocks) {
            const vantric::BlockSighting& custom = block.sighting;
            if (custom.outcome != vantric::BlockOutcome::custom) {
                continue;
            }
            if (custom.header.id != nextId++ || custom.header.kind >= RX_KIND_PACKED_UINT ||
                custom.payloadSize > UINT8_MAX) {
                Particulars particulars;
                particulars.offset = custom.offset;
                particulars.blockId = custom.header.id;
                particulars.status = about_.customStatus;
                particulars.seen =
                    fmt::format("block {}, {} in {}", custom.header.id,
                                kindName(custom.header.kind), byteCount(custom.payloadSize));
                warn(OwnCause::customFields, particulars);
                return;
            }
        }
        Particulars particulars;
        particulars.offset = about_.payloadOffset;
        particulars.status = about_.customStatus;
        warn(OwnCause::customFields, particulars);
    }

    void lookAtEnd() {
        const std::uint64_t end = about_.payload.size() - about_.signatureAreaSize;
        Particulars particulars;
        particulars.offset = *about_.endMarker;
        if (about_.status == VANTRIC_OK && *about_.endMarker - about_.payloadOffset >= end) {
            warn(OwnCause::endsInSignature, particulars);
            return;
        }
        particulars.offset = *about_.endMarker + 1;
        particulars.found = about_.trailingBytes();
        const bool couldBeSigned =
            about_.layout == Layout::Korveline && about_.image.blockId == image::plainBlockId;
        if (couldBeSigned && particulars.found == image::korveline::signatureArea) {
            warn(OwnCause::uncutSignature, particulars);
        } else if (particulars.found != 0) {
            warn(OwnCause::trailingBytes, particulars);
        }
    }

    const Diagnosis& about_;
    std::vector<Finding> warnings_;
};

}  // namespace

std::vector<Finding> warningsAbout(const Diagnosis& diagnosis) {
    return Warnings(diagnosis).take();
}

}  // namespace calcut::tools
