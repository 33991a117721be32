#include "tools/module/Tree.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <limits>
#include <span>

#include <fmt/format.h>

#include "calcut/cutter.h"
#include "calibration/packed/Block.h"
#include "tools/module/Layout.h"
#include "tools/module/Names.h"
#include "tools/module/Tables.h"
#include "tools/text/Escape.h"

namespace calcut::module {

namespace {

// ---------------------------------------------------------------------------------------- image --

text::Json fieldTree(const image::Field& field, files::ByteView bytes) {
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
    return {{"offset", field.offset},
            {"name", field.name},
            {"hex", text::hexText(bytes)},
            {"value", orNull(isNumber, number)},
            {"text", text},
            {"examined", field.examined}};
}

text::Json imageTree(const Diagnosis& about) {
    const image::Record& image = about.image;
    text::Json fields = text::Json::array();
    for (const image::Field& field : about.layout.image->fields) {
        if (field.offset < about.file.size()) {
            const std::size_t present = about.file.size() - field.offset;
            fields.push_back(
                fieldTree(field, about.file.subspan(field.offset, std::min(field.size, present))));
        }
    }
    text::Json signature;
    if (about.signatureLength) {
        const std::uint8_t length = *about.signatureLength;
        const files::ByteView room = about.payload.last(about.signatureAreaSize).subspan(1);
        signature = {{"bytes", length},
                     {"hex", text::hexText(room.first(length <= room.size() ? length : 0))}};
    }
    const text::Json payload = {{"offset", image.payloadOffset},
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
text::Json rangeOf(VantricStream& stream, const RXBlockHeader& block, std::uint64_t size) {
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
    return {{"min", any ? text::Json(*std::min_element(values.begin(), end)) : text::Json(nullptr)},
            {"max", any ? text::Json(*std::max_element(values.begin(), end)) : text::Json(nullptr)},
            {"infinite", values.end() - end}};
}

/// The range of a block; null also for a payload that is empty or incomplete.
text::Json rangeTree(const Diagnosis& about, const vantric::BlockSighting& sighting) {
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
text::Json blockTree(const Diagnosis& about, const vantric::BlockSighting& sighting,
                     std::uint64_t& decodedBytes) {
    constexpr std::uint64_t mostDecodedBytes = std::uint64_t{1} << 31;
    const RXBlockHeader& header = sighting.header;
    decodedBytes += vantric_getRXUnpackedBlockSize(&header);
    text::Json tree = {
        {"offset", sighting.offset}, {"id", header.id}, {"name", blockName(header.id)}};
    tree.update(storageTree(header));
    tree["payloadOffset"] = sighting.payloadOffset;
    tree["payloadBytes"] = sighting.payloadSize;
    tree["range"] =
        decodedBytes > mostDecodedBytes ? text::Json(nullptr) : rangeTree(about, sighting);
    tree["outcome"] = outcomeName(sighting.outcome);
    return tree;
}

text::Json calibrationTree(const Diagnosis& about) {
    const RXHeader header = about.header.value_or(RXHeader{});
    const text::Json headerTree = {
        {"version", header.version}, {"columns", header.columns}, {"rows", header.rows}};
    text::Json blocks = text::Json::array();
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

text::Json readTree(const Diagnosis& about) {
    return {{"status", statusName(*about.status)},
            {"code", *about.status},
            {"failedBlock", orNull(about.failedBlockId)}};
}

// --------------------------------------------------------------------------------------- record --

/// Pixels whose mask a cut counts.
constexpr std::uint64_t cutMaskPixels = std::uint64_t{CALCUT_SENSOR_COLUMNS} * CALCUT_SENSOR_ROWS;

text::Json floats(std::span<const float> values) {
    text::Json list = text::Json::array();
    for (const float value : values) {
        list.push_back(jsonFloat(value));
    }
    return list;
}

text::Json lensTree(const VantricCalibration& record) {
    text::Json lens;
    for (std::size_t i = 0; i < lensNames.size() && record.lensParameters; ++i) {
        lens[lensNames[i]] = jsonFloat(record.lensParameters[i]);
    }
    return lens;
}

/// Text of a record's 65-byte buffer; a text without terminator ends with the buffer.
text::Json textTree(const char* buffer) {
    return text::escapeBytes({buffer, strnlen(buffer, VANTRIC_TEXT_BYTES)});
}

text::Json wigglingTree(const VantricWigglingTable& table) {
    const std::size_t entries = std::min<std::size_t>(table.capacity, VANTRIC_WIGGLING_ENTRIES);
    return {{"header", table.header},
            {"first", floats({table.first, entries})},
            {"second", std::span(table.second, entries)},
            {"third", floats({table.third, entries})}};
}

text::Json frequencyTree(const Diagnosis& about, unsigned index) {
    const VantricFrequencyRecord& source = about.record->frequencies[index];
    const auto ifRead = [&about, index](std::uint32_t block, const text::Json& tree) {
        return orNull(about.wasRead(frequencyBlock(index, block)), tree);
    };
    const auto values = [](const float* data, std::uint8_t count) {
        return floats({data, std::min<std::size_t>(count, VANTRIC_FREQUENCY_VALUES)});
    };
    return {{"index", index},
            {"id", source.frequencyId},
            {"scalar", ifRead(RX_FREQUENCY_SCALAR, jsonFloat(source.scalar))},
            {"valuesA", ifRead(RX_FREQUENCY_VALUES_A, values(source.valuesA, source.countA))},
            {"valuesB", ifRead(RX_FREQUENCY_VALUES_B, values(source.valuesB, source.countB))},
            {"wigglingA", ifRead(RX_FREQUENCY_WIGGLING_A, wigglingTree(source.wigglingA))},
            {"wigglingB", ifRead(RX_FREQUENCY_WIGGLING_B, wigglingTree(source.wigglingB))}};
}

text::Json straylightTree(const VantricCalibration& record) {
    // Making the PSF puts an origin point in front of the profile; shown are the file's.
    const std::size_t points =
        std::min<std::size_t>(record.straylightPointCount, VANTRIC_STRAYLIGHT_POINTS + 1);
    const std::size_t skip = record.psf != nullptr && points > 0 ? 1 : 0;
    return {{"scale", jsonFloat(record.straylightScale)},
            {"exponent", jsonFloat(record.straylightExponent)},
            {"offset", jsonFloat(record.straylightOffset)},
            {"centre", jsonFloat(record.straylightCentre)},
            {"psfWidth", record.psfWidth},
            {"psfHeight", record.psfHeight},
            {"radius", floats({record.straylightRadius + skip, points - skip})},
            {"value", floats({record.straylightValue + skip, points - skip})}};
}

// ------------------------------------------------------------------------------------- findings --

text::Json findingsTree(const std::vector<Finding>& findings) {
    text::Json list = text::Json::array();
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

text::Json storageTree(const RXBlockHeader& header) {
    const bool fixedPoint = header.kind == RX_KIND_PACKED_FLOAT;
    return {{"kind", kindName(header.kind)},
            {"count", header.count},
            {"bits", orNull(vantric::isPacked(header.kind), header.bits)},
            {"scale", orNull(fixedPoint, jsonFloat(header.scale))},
            {"valueOffset", orNull(fixedPoint, jsonFloat(header.offset))}};
}

text::Json inspectTree(const Diagnosis& about, std::string_view path) {
    const bool isImage = about.layout.image != nullptr;
    const bool hasCalibration = about.payload.size() > about.signatureAreaSize;
    return {{"schema", inspectSchema},
            {"file", path},
            {"bytes", about.file.size()},
            {"layout", about.layout.name},
            {"intact", about.intact()},
            {"cuttable", about.cuttable()},
            {"image", isImage ? imageTree(about) : text::Json(nullptr)},
            {"calibration", hasCalibration ? calibrationTree(about) : text::Json(nullptr)},
            {"read", about.status ? readTree(about) : text::Json(nullptr)},
            {"record", recordTree(about)},
            {"faults", findingsTree(about.faults)},
            {"warnings", findingsTree(about.warnings)}};
}

text::Json recordTree(const Diagnosis& about) {
    if (!about.record) {
        return nullptr;
    }
    const VantricCalibration& record = *about.record;
    const auto ifRead = [&about](std::uint32_t block, const text::Json& tree) {
        return orNull(about.wasRead(block), tree);
    };
    // There may be no memory for a mask.
    const bool hasMask = about.wasRead(RX_BLOCK_MASK) && record.pixelMask != nullptr;
    const std::uint64_t pixels =
        hasMask ? std::uint64_t{record.imagerArea.columns} * record.imagerArea.rows : 0;
    const auto maskedUpTo = [&record](std::uint64_t end) {
        return std::count(record.pixelMask, record.pixelMask + end, std::uint8_t{0});
    };
    const std::size_t idBytes = std::min<std::size_t>(record.idBytesSize, VANTRIC_ID_BYTES);
    text::Json frequencies = text::Json::array();
    // Records are filled by id, so a calibration that leaves one out has a gap.
    for (unsigned k = 0; k < VANTRIC_FREQUENCIES; ++k) {
        if (about.wasRead(frequencyBlock(k, RX_FREQUENCY_ID))) {
            frequencies.push_back(frequencyTree(about, k));
        }
    }
    text::Json custom = text::Json::array();
    for (const Table& field : customTablesOf(about)) {
        custom.push_back({{"id", record.firstCustomFieldId + custom.size()},
                          {"hex", text::hexText(field.bytes)}});
    }
    return {{"columns", record.imagerArea.columns},
            {"rows", record.imagerArea.rows},
            {"auxFlag", ifRead(RX_BLOCK_AUX_FLAG, record.auxFlag)},
            {"lens", ifRead(RX_BLOCK_LENS_PARAMETERS, lensTree(record))},
            {"text0", ifRead(RX_BLOCK_DATE, textTree(record.text0))},
            {"text1", ifRead(RX_BLOCK_TEXT1, textTree(record.text1))},
            {"text2", ifRead(RX_BLOCK_TEXT2, textTree(record.text2))},
            {"idBytes",
             text::hexText({record.idBytes, about.wasRead(RX_BLOCK_ID_BYTES) ? idBytes : 0U})},
            {"idCodes", ifRead(RX_BLOCK_ID_CODES, std::array{record.idCode0, record.idCode1})},
            {"maskedPixels", ifRead(RX_BLOCK_MASK, maskedUpTo(pixels))},
            {"zeroMaskCount", ifRead(RX_BLOCK_MASK, maskedUpTo(std::min(pixels, cutMaskPixels)))},
            {"frequencies", frequencies},
            {"straylight", ifRead(RX_BLOCK_STRAYLIGHT, straylightTree(record))},
            {"custom", custom},
            {"customStatus", statusName(about.customStatus)}};
}

text::Json jsonFloat(float value) {
    if (std::isinf(value)) {
        return value < 0 ? "-inf" : "inf";
    }
    return value;
}

}  // namespace calcut::module
