// What is odd about a file that reads, or about the parts of one that do.
#include <algorithm>
#include <cmath>
#include <span>

#include <fmt/format.h>

#include "calibration/packed/Block.h"
#include "tools/module/Diagnosis.h"
#include "tools/module/Names.h"
#include "tools/module/TableMeasures.h"
#include "tools/text/Escape.h"

namespace calcut::module {

namespace {

// docs/inspect-json.md lists the limits.
constexpr double mostFocalRatio = 1.25;
constexpr std::size_t mostRegionPixels = 64;
constexpr double mostEqualNeighbours = 0.25;
constexpr double mostDeviations = 1000.0;

/// Whether the radial distortion turns back before it has reached the farthest corner of the image,
/// so that two rays meet one pixel.
bool folds(std::span<const float> lens, const VantricImagerArea& area) {
    const auto farthest = [](float centre, float focal, std::uint32_t size) {
        return std::max(centre + 0.5, size - 0.5 - centre) / focal;
    };
    const double corner =
        std::hypot(farthest(lens[VANTRIC_LENS_CX], lens[VANTRIC_LENS_FX], area.columns),
                   farthest(lens[VANTRIC_LENS_CY], lens[VANTRIC_LENS_FY], area.rows));
    const double k1 = lens[VANTRIC_LENS_K1];
    const double k2 = lens[VANTRIC_LENS_K2];
    const double k3 = lens[VANTRIC_LENS_K3];
    // An image that needs rays ten times as far out is as good as folded.
    constexpr int steps = 1000;
    for (int step = 1; step <= steps; ++step) {
        const double radius = corner * step / (steps / 10.0);
        const double r2 = radius * radius;
        const double slope = 1.0 + r2 * (3.0 * k1 + r2 * (5.0 * k2 + r2 * 7.0 * k3));
        if (!(slope > 0.0)) {
            return true;
        }
        if (radius * (1.0 + r2 * (k1 + r2 * (k2 + r2 * k3))) >= corner) {
            return false;
        }
    }
    return true;
}

void lookAtLens(Diagnosis& dump) {
    const vantric::BlockSighting* block = dump.readBlock(RX_BLOCK_LENS_PARAMETERS);
    if (block == nullptr || dump.record->lensParameters == nullptr) {
        return;
    }
    const std::span lens(dump.record->lensParameters, VANTRIC_LENS_PARAMETERS);
    const VantricImagerArea& area = dump.record->imagerArea;
    const auto warn = [&](const char* name, const char* what, const std::string& expected,
                          const std::string& found, std::size_t parameter) {
        dump.warnings.push_back(
            {name, what, expected, found, "the cut is made all the same: check the lens parameters",
             block->payloadOffset + parameter * sizeof(float), block->header.id});
    };
    const float fx = lens[VANTRIC_LENS_FX];
    const float fy = lens[VANTRIC_LENS_FY];
    const std::string focal = fmt::format("fx {}, fy {}", fx, fy);
    const auto usable = [](float length) { return length > 0.0F && std::isfinite(length); };
    const bool areUsable = usable(fx) && usable(fy);
    if (!areUsable) {
        warn("focal-length", "focal length not positive and finite", "", focal, VANTRIC_LENS_FX);
    } else if (std::max(double{fx} / fy, double{fy} / fx) > mostFocalRatio) {
        warn("focal-ratio", "focal lengths far apart",
             fmt::format("a ratio of {} to {}", 1.0 / mostFocalRatio, mostFocalRatio), focal,
             VANTRIC_LENS_FX);
    }
    // Pixel centres have whole coordinates, so that the image begins half a pixel before 0.
    const auto inside = [](float at, std::uint32_t size) {
        return at >= -0.5F && at <= static_cast<float>(size) - 0.5F;
    };
    const float cx = lens[VANTRIC_LENS_CX];
    const float cy = lens[VANTRIC_LENS_CY];
    if (!inside(cx, area.columns) || !inside(cy, area.rows)) {
        warn("centre", "centre outside the image",
             fmt::format("it within {} x {} pixels", area.columns, area.rows),
             fmt::format("cx {}, cy {}", cx, cy), VANTRIC_LENS_CX);
    } else if (areUsable && folds(lens, area)) {
        warn("folded", "the distortion folds the image",
             "radii that grow up to the corners of the image",
             fmt::format("k1 {}, k2 {}, k3 {}", lens[VANTRIC_LENS_K1], lens[VANTRIC_LENS_K2],
                         lens[VANTRIC_LENS_K3]),
             VANTRIC_LENS_K1);
    }
}

void lookAtMask(Diagnosis& dump) {
    const vantric::BlockSighting* block = dump.readBlock(RX_BLOCK_MASK);
    const files::ByteView mask = dump.mask();
    if (block == nullptr) {
        return;
    }
    const std::size_t masked = countMasked(mask);
    if (2 * masked > mask.size()) {
        const bool all = masked == mask.size();
        dump.warnings.push_back(
            {all ? "all-masked" : "half-masked",
             all ? "every pixel is masked" : "more than half of the pixels are masked", "",
             fmt::format("{} of {} pixels", masked, mask.size()), askWriter, block->offset,
             block->header.id});
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

void lookAtTable(const Diagnosis& dump, std::uint32_t blockId, const float* values,
                 std::vector<Finding>& warnings) {
    const vantric::BlockSighting* block = dump.readBlock(blockId);
    const files::ByteView mask = dump.mask();
    if (block == nullptr || values == nullptr || mask.empty()) {
        return;
    }
    const std::uint32_t columns = dump.record->imagerArea.columns;
    const TableMeasures measured = measure({values, mask.size()}, mask, columns);
    const auto warn = [&](const char* name, const char* what, const std::string& expected,
                          std::size_t at, const std::string& found) {
        warnings.push_back({name, fmt::format("{} {}", blockName(blockId), what), expected,
                            fmt::format("{} at column {}, row {}{}", values[at], at % columns,
                                        at / columns, found),
                            askWriter, block->payloadOffset, blockId});
    };
    if (measured.valid <= mostRegionPixels) {
        return;
    }
    if (measured.constant) {
        warn("constant-table", "has one value", "values that differ", measured.regionAt,
             fmt::format(" and in all other {} valid pixels", measured.valid - 1));
    } else if (measured.regionPixels > mostRegionPixels &&
               measured.equalNeighbours < mostEqualNeighbours) {
        warn("stuck-region", "has a region of one value",
             fmt::format("at most {} connected pixels", mostRegionPixels), measured.regionAt,
             fmt::format(" and in {} pixels connected with it", measured.regionPixels - 1));
    }
    if (measured.farthest > mostDeviations) {
        warn("outlier", "has a value far from all others",
             fmt::format("at most {} robust standard deviations", mostDeviations),
             measured.farthestAt,
             fmt::format(", {:.0f} of them from the median", measured.farthest));
    }
}

}  // namespace

std::vector<Finding> tableWarnings(const Diagnosis& dump) {
    std::vector<Finding> warnings;
    if (dump.record) {
        lookAtTable(dump, RX_BLOCK_PIXEL_VALUES, dump.record->pixelValues, warnings);
        for (unsigned k = 0; k < VANTRIC_FREQUENCIES; ++k) {
            lookAtTable(dump, frequencyBlock(k, RX_FREQUENCY_PIXEL_TABLE),
                        dump.record->frequencies[k].pixelTable, warnings);
        }
    }
    return warnings;
}

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
