#include "tools/module/Tree.h"

#include <algorithm>
#include <iterator>
#include <span>

#include "calibration/packed/Block.h"
#include "tools/module/Names.h"
#include "tools/module/Stored.h"
#include "tools/module/Tables.h"
#include "tools/text/Escape.h"

namespace calcut::module {

namespace {

text::Json imageTree(const Diagnosis& about) {
    const image::Record& image = about.image;
    text::Json fields = text::Json::array();
    for (const auto& [field, bytes, number, text] : imageFieldsOf(about)) {
        fields.push_back({{"offset", field.offset},
                          {"name", field.name},
                          {"hex", text::hexText(bytes)},
                          {"value", orNull(number)},
                          {"text", text},
                          {"examined", field.examined}});
    }
    text::Json signature;
    if (const auto bytes = signatureOf(about)) {
        signature = {{"bytes", *about.signatureLength}, {"hex", text::hexText(*bytes)}};
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

text::Json blockTree(const vantric::BlockSighting& block, const std::optional<Range>& range) {
    text::Json tree = {
        {"offset", block.offset}, {"id", block.header.id}, {"name", blockName(block.header.id)}};
    tree.update(storageTree(block.header));
    tree["payloadOffset"] = block.payloadOffset;
    tree["payloadBytes"] = block.payloadSize;
    tree["range"] = nullptr;
    if (range) {
        tree["range"] = {{"min", range->min}, {"max", range->max}, {"infinite", range->infinite}};
    }
    tree["outcome"] = outcomeName(block.outcome);
    return tree;
}

text::Json calibrationTree(const Diagnosis& about) {
    const RXHeader header = about.header.value_or(RXHeader{});
    const text::Json headerTree = {
        {"version", header.version}, {"columns", header.columns}, {"rows", header.rows}};
    text::Json blocks = text::Json::array();
    const std::vector<std::optional<Range>> ranges = rangesOf(about);
    for (std::size_t i = 0; i < ranges.size(); ++i) {
        blocks.push_back(blockTree(about.blocks[i], ranges[i]));
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

/// What a group of fields belongs to is null when its block was not read.
text::Json fieldsTree(std::span<const Field> fields, const Diagnosis& about,
                      std::optional<unsigned> frequency = {}) {
    text::Json tree = text::Json::object();
    for (const Field& field : fields) {
        if (*field.key == '\0') {
            continue;
        }
        const text::Json value = valueOf(field, about, frequency);
        text::Json& place = *field.group == '\0' ? tree : tree[field.group];
        if (*field.group == '\0' || !value.is_null()) {
            place[field.key] = value;
        }
    }
    return tree;
}

// ------------------------------------------------------------------------------------- findings --

text::Json findingsTree(const std::vector<Finding>& findings) {
    text::Json list = text::Json::array();
    std::ranges::transform(findings, std::back_inserter(list), findingTree);
    return list;
}

}  // namespace

text::Json findingTree(const Finding& finding) {
    return {{"name", finding.name},
            {"what", finding.what},
            {"expected", orNull(!finding.expected.empty(), finding.expected)},
            {"found", orNull(!finding.found.empty(), finding.found)},
            {"advice", finding.advice},
            {"offset", finding.offset},
            {"status", orNull(finding.status != VANTRIC_OK, statusName(finding.status))},
            {"block", orNull(finding.blockId)},
            {"text", describe(finding)}};
}

text::Json storageTree(const RXBlockHeader& header) {
    const bool fixedPoint = header.kind == RX_KIND_PACKED_FLOAT;
    return {{"kind", kindName(header.kind)},
            {"count", header.count},
            {"bits", orNull(vantric::isPacked(header.kind), header.bits)},
            {"scale", orNull(fixedPoint, header.scale)},
            {"valueOffset", orNull(fixedPoint, header.offset)}};
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
    text::Json tree = fieldsTree(recordFields, about);
    text::Json& frequencies = tree["frequencies"] = text::Json::array();
    for (const unsigned k : frequenciesOf(about)) {
        frequencies.push_back({{"index", k}});
        frequencies.back().update(fieldsTree(frequencyFields, about, k));
    }
    tree.update(fieldsTree(straylightFields, about));
    tree["custom"] = text::Json::array();
    for (const Table& field : customTablesOf(about)) {
        const auto id = about.record->firstCustomFieldId + tree["custom"].size();
        tree["custom"].push_back({{"id", id}, {"hex", text::hexText(field.bytes)}});
    }
    tree["customStatus"] = statusName(about.customStatus);
    return tree;
}

}  // namespace calcut::module
