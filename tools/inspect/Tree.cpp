#include "tools/inspect/Tree.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include <fmt/format.h>

#include "calibration/packed/Block.h"
#include "cutter/korvelineImage.h"
#include "tools/dump/Names.h"
#include "tools/terminal/Escape.h"

namespace calcut::tools {

namespace {

// ---------------------------------------------------------------------------------------- image --

Json fieldTree(const image::Field& field, ByteView bytes) {
    const bool isWhole = bytes.size() == field.size;
    const bool isNumber = isWhole && (field.format == image::Format::decimal ||
                                      field.format == image::Format::hexadecimal);
    std::uint64_t number = 0;
    for (std::size_t i = bytes.size(); i-- > 0;) {
        number = number << 8 | bytes[i];
    }
    std::string text;
    if (isWhole && field.format == image::Format::text) {
        text = quotedBytes(bytes);
    } else if (isNumber && field.format == image::Format::decimal) {
        text = fmt::to_string(number);
    } else if (isNumber) {
        text = fmt::format("0x{:0{}x}", number, 2 * field.size);
    } else {
        text = fmt::format("{:02x}", fmt::join(bytes, " "));
    }
    return {{"offset", field.offset}, {"name", field.name},
            {"hex", hexText(bytes)},  {"value", orNull(isNumber, number)},
            {"text", text},           {"examined", field.examined}};
}

Json imageTree(const Diagnosis& about) {
    const image::Record& image = about.image;
    Json fields = Json::array();
    for (const image::Field& field : traitsOf(about.layout).fields) {
        if (field.offset < about.file.size()) {
            const std::size_t present = about.file.size() - field.offset;
            fields.push_back(
                fieldTree(field, about.file.subspan(field.offset, std::min(field.size, present))));
        }
    }
    Json signature;
    if (about.signatureLength) {
        const std::uint8_t length = *about.signatureLength;
        const ByteView room = about.payload.last(about.signatureAreaSize)
                                  .subspan(image::korveline::signatureLengthSize);
        signature = {{"bytes", length},
                     {"hex", hexText(room.first(length <= room.size() ? length : 0))}};
    }
    const Json payload = {{"offset", image.payloadOffset},
                          {"bytes", image.payloadLength},
                          {"inside", about.payload.size() == image.payloadLength}};
    return {{"fields", fields},
            {"storedCrc", orNull(image.hasHeader, image.storedCrc)},
            {"computedCrc", orNull(image.computedCrc)},
            {"payload", orNull(image.hasHeader, payload)},
            {"signature", signature}};
}

// ---------------------------------------------------------------------------------- calibration --

/// Smallest and largest of a block's decoded values; null when they cannot be decoded.
template <typename Value>
Json rangeOf(VantricStream& stream, const RXBlockHeader& block, std::uint64_t size) {
    // The size of the scratch is asked for, its content is not used.
    constexpr std::uint64_t anyScratch = std::numeric_limits<std::uint64_t>::max();
    std::vector<Value> values(size / sizeof(Value));
    auto* const bytes = reinterpret_cast<std::uint8_t*>(values.data());
    if (vantric::decodeBlock(stream, block, anyScratch, bytes, size).refused()) {
        return nullptr;
    }
    const auto end = std::remove_if(values.begin(), values.end(), [](Value value) {
        return !std::isfinite(static_cast<float>(value));
    });
    const bool any = end != values.begin();
    return {{"min", any ? Json(*std::min_element(values.begin(), end)) : Json(nullptr)},
            {"max", any ? Json(*std::max_element(values.begin(), end)) : Json(nullptr)},
            {"infinite", values.end() - end}};
}

/// The range of a block; null also for a payload that is empty or incomplete.
Json rangeTree(const Diagnosis& about, const vantric::BlockSighting& sighting) {
    // The largest per-pixel table of a 65-megapixel sensor fits; only a file made to exhaust memory
    // does not.
    constexpr std::uint64_t maxDecodedBytes = std::uint64_t{1} << 28;
    const RXBlockHeader& block = sighting.header;
    const std::uint64_t size = vantric_getRXUnpackedBlockSize(&block);
    if (size == 0 || size > maxDecodedBytes || sighting.payloadSize > about.payload.size()) {
        return nullptr;
    }
    VantricStream stream = vantric_createStreamFromData(about.payload.data(), about.payload.size());
    stream.position = sighting.payloadOffset - about.payloadOffset;
    switch (block.kind) {
        case RX_KIND_RAW:
            return rangeOf<std::uint8_t>(stream, block, size);
        case RX_KIND_UINT16:
            return rangeOf<std::uint16_t>(stream, block, size);
        case RX_KIND_INT32:
            return rangeOf<std::int32_t>(stream, block, size);
        case RX_KIND_FLOAT:
        case RX_KIND_PACKED_FLOAT:
            return rangeOf<float>(stream, block, size);
        default:
            return rangeOf<std::uint32_t>(stream, block, size);
    }
}

/// decodedBytes is what the ranges of this file have taken so far: unknown blocks may lie over each
/// other, so that a small file could ask for hours.
Json blockTree(const Diagnosis& about, const vantric::BlockSighting& sighting,
               std::uint64_t& decodedBytes) {
    constexpr std::uint64_t mostDecodedBytes = std::uint64_t{1} << 31;
    const RXBlockHeader& header = sighting.header;
    decodedBytes += vantric_getRXUnpackedBlockSize(&header);
    Json tree = {{"offset", sighting.offset}, {"id", header.id}, {"name", blockName(header.id)}};
    tree.update(storageTree(header));
    tree["payloadOffset"] = sighting.payloadOffset;
    tree["payloadBytes"] = sighting.payloadSize;
    tree["range"] = decodedBytes > mostDecodedBytes ? Json(nullptr) : rangeTree(about, sighting);
    tree["outcome"] = outcomeName(sighting.outcome);
    return tree;
}

Json calibrationTree(const Diagnosis& about) {
    const RXHeader header = about.header.value_or(RXHeader{});
    const Json headerTree = {
        {"version", header.version}, {"columns", header.columns}, {"rows", header.rows}};
    Json blocks = Json::array();
    std::uint64_t decodedBytes = 0;
    for (const vantric::BlockSighting& block : about.blocks) {
        blocks.push_back(blockTree(about, block, decodedBytes));
    }
    return {{"offset", about.payloadOffset},
            {"bytes", about.payload.size() - about.signatureAreaSize},
            {"header", orNull(about.header.has_value(), headerTree)},
            {"blocks", std::move(blocks)},
            {"endMarker", orNull(about.endMarker)},
            {"trailingBytes", about.trailingBytes()}};
}

Json readTree(const Diagnosis& about) {
    return {{"status", statusName(*about.status)},
            {"code", *about.status},
            {"failedBlock", orNull(about.failedBlockId)}};
}

// ------------------------------------------------------------------------------------- findings --

Json findingsTree(const std::vector<Finding>& findings) {
    Json list = Json::array();
    for (const Finding& finding : findings) {
        list.push_back(
            {{"name", finding.name},
             {"what", finding.what},
             {"expected", orNull(!finding.expected.empty(), finding.expected)},
             {"found", orNull(!finding.found.empty(), finding.found)},
             {"advice", finding.advice},
             {"offset", finding.offset},
             {"status", orNull(finding.status != VANTRIC_OK, statusName(finding.status))},
             {"block", orNull(finding.blockId)},
             {"text", describe(finding)}});
    }
    return list;
}

}  // namespace

Json storageTree(const RXBlockHeader& header) {
    const bool fixedPoint = header.kind == RX_KIND_PACKED_FLOAT;
    return {{"kind", kindName(header.kind)},
            {"count", header.count},
            {"bits", orNull(vantric::isPacked(header.kind), header.bits)},
            {"scale", orNull(fixedPoint, jsonFloat(header.scale))},
            {"valueOffset", orNull(fixedPoint, jsonFloat(header.offset))}};
}

Json inspectTree(const Diagnosis& about, std::string_view path) {
    const bool isImage = !traitsOf(about.layout).fields.empty();
    const bool hasCalibration = about.payload.size() > about.signatureAreaSize;
    return {{"schema", inspectSchema},
            {"file", path},
            {"bytes", about.file.size()},
            {"layout", layoutName(about.layout)},
            {"intact", about.intact()},
            {"cuttable", about.cuttable()},
            {"image", isImage ? imageTree(about) : Json(nullptr)},
            {"calibration", hasCalibration ? calibrationTree(about) : Json(nullptr)},
            {"read", about.status ? readTree(about) : Json(nullptr)},
            {"record", recordTree(about)},
            {"faults", findingsTree(about.faults)},
            {"warnings", findingsTree(about.warnings)}};
}

std::string jsonText(const Json& tree) {
    return tree.dump(2, ' ', false, Json::error_handler_t::replace) + '\n';
}

Json jsonFloat(float value) {
    if (std::isinf(value)) {
        return value < 0 ? "-inf" : "inf";
    }
    return value;
}

}  // namespace calcut::tools
