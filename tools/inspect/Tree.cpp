#include "tools/inspect/Tree.h"

#include <span>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "calibration/packed/Block.h"
#include "cutter/korvelineImage.h"
#include "cutter/v7Image.h"
#include "tools/dump/Names.h"
#include "tools/terminal/Escape.h"

namespace calcut::tools {

namespace {

template <typename Value>
Json orNull(const std::optional<Value>& value) {
    return value ? Json(*value) : Json(nullptr);
}

/// For findings: an empty text says that there is none.
Json orNull(const std::string& text) {
    return text.empty() ? Json(nullptr) : Json(text);
}

// ---------------------------------------------------------------------------------------- image --

std::span<const image::Field> fieldsOf(Layout layout) {
    switch (layout) {
        case Layout::V7:
            return image::v7::fields;
        case Layout::Korveline:
            return image::korveline::fields;
        default:
            return {};
    }
}

std::uint64_t numberOf(ByteView bytes) {
    std::uint64_t value = 0;
    for (std::size_t i = bytes.size(); i-- > 0;) {
        value = value << 8 | bytes[i];
    }
    return value;
}

std::string fieldText(const image::Field& field, ByteView bytes) {
    if (bytes.size() == field.size) {
        switch (field.format) {
            case image::Format::text:
                return quotedBytes(bytes);
            case image::Format::decimal:
                return fmt::format("{}", numberOf(bytes));
            case image::Format::hexadecimal:
                return fmt::format("0x{:0{}x}", numberOf(bytes), 2 * field.size);
            case image::Format::bytes:
                break;
        }
    }
    return fmt::format("{:02x}", fmt::join(bytes, " "));
}

Json fieldsTree(const Diagnosis& about) {
    Json fields = Json::array();
    for (const image::Field& field : fieldsOf(about.layout)) {
        if (field.offset >= about.file.size()) {
            break;
        }
        const ByteView bytes = about.file.subspan(
            field.offset, std::min<std::size_t>(field.size, about.file.size() - field.offset));
        const bool isNumber = (field.format == image::Format::decimal ||
                               field.format == image::Format::hexadecimal) &&
                              bytes.size() == field.size;
        fields.push_back({{"offset", field.offset},
                          {"name", field.name},
                          {"hex", hexText(bytes)},
                          {"value", isNumber ? Json(numberOf(bytes)) : Json(nullptr)},
                          {"text", fieldText(field, bytes)},
                          {"examined", field.examined}});
    }
    return fields;
}

Json imageTree(const Diagnosis& about) {
    if (about.layout != Layout::V7 && about.layout != Layout::Korveline) {
        return nullptr;
    }
    const image::Record& image = about.image;
    Json tree;
    tree["fields"] = fieldsTree(about);
    tree["storedCrc"] = image.hasHeader ? Json(image.storedCrc) : Json(nullptr);
    tree["computedCrc"] = orNull(image.computedCrc);
    tree["payload"] = nullptr;
    if (image.hasHeader) {
        tree["payload"] = {{"offset", image.payloadOffset},
                           {"bytes", image.payloadLength},
                           {"inside", about.payload.size() == image.payloadLength}};
    }
    tree["signature"] = nullptr;
    if (about.signatureLength) {
        const std::uint8_t length = *about.signatureLength;
        const ByteView signature = about.payload.last(about.signatureAreaSize)
                                       .subspan(image::korveline::signatureLengthSize);
        tree["signature"] = {
            {"bytes", length},
            {"hex", hexText(signature.first(length <= signature.size() ? length : 0))}};
    }
    return tree;
}

// ---------------------------------------------------------------------------------- calibration --

/// decodedBytes is what the ranges of this file have taken so far: unknown blocks may lie over each
/// other, so that a small file could ask for hours.
Json blockTree(const Diagnosis& about, const vantric::BlockSighting& sighting,
               std::uint64_t& decodedBytes) {
    constexpr std::uint64_t mostDecodedBytes = std::uint64_t{1} << 31;
    const RXBlockHeader& header = sighting.header;
    const bool packed = vantric::isPacked(header.kind);
    const bool fixedPoint = header.kind == RX_KIND_PACKED_FLOAT;
    decodedBytes += vantric_getRXUnpackedBlockSize(&header);
    Json tree;
    tree["offset"] = sighting.offset;
    tree["id"] = header.id;
    tree["name"] = blockName(header.id);
    tree["kind"] = kindName(header.kind);
    tree["count"] = header.count;
    tree["bits"] = packed ? Json(header.bits) : Json(nullptr);
    tree["scale"] = fixedPoint ? jsonFloat(header.scale) : Json(nullptr);
    tree["valueOffset"] = fixedPoint ? jsonFloat(header.offset) : Json(nullptr);
    tree["payloadOffset"] = sighting.payloadOffset;
    tree["payloadBytes"] = sighting.payloadSize;
    tree["range"] = decodedBytes > mostDecodedBytes ? Json(nullptr) : rangeTree(about, sighting);
    tree["outcome"] = outcomeName(sighting.outcome);
    return tree;
}

Json calibrationTree(const Diagnosis& about) {
    if (about.payload.size() <= about.signatureAreaSize) {
        return nullptr;
    }
    Json tree;
    tree["offset"] = about.payloadOffset;
    tree["bytes"] = about.payload.size() - about.signatureAreaSize;
    tree["header"] = nullptr;
    if (about.header) {
        tree["header"] = {{"version", about.header->version},
                          {"columns", about.header->columns},
                          {"rows", about.header->rows}};
    }
    Json& blocks = tree["blocks"] = Json::array();
    std::uint64_t decodedBytes = 0;
    for (const vantric::BlockSighting& block : about.blocks) {
        blocks.push_back(blockTree(about, block, decodedBytes));
    }
    tree["endMarker"] = orNull(about.endMarker);
    tree["trailingBytes"] = about.trailingBytes();
    return tree;
}

Json readTree(const Diagnosis& about) {
    if (!about.status) {
        return nullptr;
    }
    return {{"status", statusName(*about.status)},
            {"code", *about.status},
            {"failedBlock", orNull(about.failedBlockId)}};
}

// ------------------------------------------------------------------------------------- findings --

Json findingsTree(const std::vector<Finding>& findings) {
    Json list = Json::array();
    for (const Finding& finding : findings) {
        Json& entry = list.emplace_back();
        entry["name"] = finding.name;
        entry["what"] = finding.what;
        entry["expected"] = orNull(finding.expected);
        entry["found"] = orNull(finding.found);
        entry["advice"] = finding.advice;
        entry["offset"] = finding.offset;
        entry["status"] =
            finding.status == VANTRIC_OK ? Json(nullptr) : Json(statusName(finding.status));
        entry["block"] = orNull(finding.blockId);
        entry["text"] = describe(finding);
    }
    return list;
}

}  // namespace

Json inspectTree(const Diagnosis& about, std::string_view path) {
    Json tree;
    tree["schema"] = inspectSchema;
    tree["file"] = path;
    tree["bytes"] = about.file.size();
    tree["layout"] = layoutName(about.layout);
    tree["intact"] = about.intact();
    tree["cuttable"] = about.cuttable();
    tree["image"] = imageTree(about);
    tree["calibration"] = calibrationTree(about);
    tree["read"] = readTree(about);
    tree["record"] = recordTree(about);
    tree["faults"] = findingsTree(about.faults);
    tree["warnings"] = findingsTree(about.warnings);
    return tree;
}

}  // namespace calcut::tools
