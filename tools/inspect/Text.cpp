#include "tools/inspect/Text.h"

#include <algorithm>
#include <bit>
#include <initializer_list>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "tools/dump/Names.h"
#include "tools/inspect/Lines.h"
#include "tools/terminal/Escape.h"

namespace calcut::tools {

namespace {

/// A value as people read it. format, for instance ":#06x", is for whole numbers.
std::string text(const Json& value, std::string_view format = "") {
    if (value.is_string()) {
        return value.get<std::string>();
    }
    if (value.is_number_float()) {
        return fmt::format("{}", value.get<float>());
    }
    if (value.is_array()) {
        std::string list;
        for (const Json& element : value) {
            list += (list.empty() ? "" : "  ") + text(element, format);
        }
        return list;
    }
    return value.is_null() ? std::string()
                           : fmt::format(fmt::runtime(fmt::format("{{{}}}", format)),
                                         value.get<std::int64_t>());
}

/// The pattern with the values of an object in place of their keys in braces ("{columns} pixels",
/// "{code:#010x}"); empty when one of them is null.
std::string filled(std::string_view pattern, const Json& tree) {
    std::string line;
    while (pattern.find('{') != std::string_view::npos) {
        const std::size_t open = pattern.find('{');
        const std::size_t close = pattern.find('}');
        const std::string_view place = pattern.substr(open + 1, close - open - 1);
        const std::string_view key = place.substr(0, place.find(':'));
        const Json& value = tree.at(std::string(key));
        if (value.is_null()) {
            return {};
        }
        line.append(pattern.substr(0, open)).append(text(value, place.substr(key.size())));
        pattern.remove_prefix(close + 1);
    }
    return line.append(pattern);
}

/// Two patterns.
struct Item {
    const char* name;
    const char* value;
};

/// What is null or empty was not there and is left out.
void writeItems(Lines& out, const Json& tree, std::initializer_list<Item> items) {
    for (const Item& item : items) {
        const std::string value = filled(item.value, tree);
        if (!value.empty()) {
            out.item(filled(item.name, tree), value);
        }
    }
}

std::uint64_t pixelsOf(const Json& size) {
    return size["columns"].get<std::uint64_t>() * size["rows"].get<std::uint64_t>();
}

// ---------------------------------------------------------------------------------------- image --

void writeImage(Lines& out, const Json& image) {
    out.heading("Image header");
    std::vector<TableRow> rows;
    for (const Json& field : image["fields"]) {
        rows.push_back({text(field["offset"]), text(field["name"]), text(field["text"])});
    }
    out.table({{"offset", true, 0}, {"field", false, 0}, {"value", false, 0}}, std::move(rows));
    if (const Json& payload = image["payload"]; !payload.is_null()) {
        out.item("payload", filled("{bytes} bytes at byte {offset}", payload) +
                                (payload["inside"] ? "" : ", not all inside the file"));
    }
    writeItems(out, image, {{"stored CRC-32", "{storedCrc:#010x}"}});
    if (!image["computedCrc"].is_null()) {
        const bool matches = image["computedCrc"] == image["storedCrc"];
        out.item("computed CRC-32",
                 filled("{computedCrc:#010x}  ", image) + (matches ? "matches" : "does not match"),
                 matches ? Colour::Green : Colour::Red);
    }
    if (const Json& signature = image["signature"]; !signature.is_null()) {
        writeItems(out, signature, {{"signature", "{bytes} bytes"}});
        out.hexItem("", text(signature["hex"]));
    }
}

// ---------------------------------------------------------------------------------- calibration --

std::string rangeText(const Json& range) {
    if (range.is_null()) {
        return {};
    }
    std::string line = filled(range["min"] == range["max"] ? "{min}" : "{min} to {max}", range);
    if (range["infinite"] != 0) {
        line += (line.empty() ? "" : ", ") + filled("{infinite} not finite", range);
    }
    return line;
}

void writeBlocks(Lines& out, const Json& calibration) {
    out.heading("Blocks");
    std::vector<TableRow> rows;
    bool ignored = false;
    for (const Json& block : calibration["blocks"]) {
        ignored = ignored || block["outcome"] == outcomeName(vantric::BlockOutcome::unknown);
        rows.push_back({text(block["offset"]), text(block["id"]), text(block["name"]),
                        text(block["kind"]), text(block["count"]), text(block["bits"]),
                        filled("{scale}, {valueOffset}", block), text(block["payloadOffset"]),
                        text(block["payloadBytes"]), rangeText(block["range"]),
                        text(block["outcome"])});
    }
    if (!calibration["endMarker"].is_null()) {
        rows.push_back({text(calibration["endMarker"]), fmt::format("{}", VANTRIC_RX_END_MARKER),
                        blockName(VANTRIC_RX_END_MARKER)});
    }
    out.table({{"offset", true, 7},
               {"id", true, 0},
               {"what", false, 0},
               {"kind", false, 5},
               {"count", true, 6},
               {"bits", true, 4},
               {"scale, offset", false, 2},
               {"payload at", true, 1},
               {"bytes", true, 3},
               {"values", false, 8},
               {"read", false, 0}},
              std::move(rows));
    if (ignored) {
        out.item("ignored",
                 "an id below 128 that the reader does not know. It takes the next block header "
                 "right behind that block's header; the payload is not skipped.");
    }
    if (const auto trailing = calibration["trailingBytes"].get<std::uint64_t>(); trailing != 0) {
        out.item(byteCount(trailing) + " behind the end marker", "");
    }
}

void writeCalibration(Lines& out, const Json& calibration) {
    out.heading("Packed calibration");
    writeItems(out, calibration, {{"at", "byte {offset}, {bytes} bytes"}});
    if (const Json& header = calibration["header"]; !header.is_null()) {
        writeItems(out, header, {{"version", "{version}"}});
        out.item("sensor", filled("{columns} columns x {rows} rows, ", header) +
                               fmt::format("{} pixels", pixelsOf(header)));
        writeBlocks(out, calibration);
    }
}

// --------------------------------------------------------------------------------------- record --

void writeWiggling(Lines& out, const char* name, const Json& table) {
    if (table.is_null()) {
        return;
    }
    const auto header = table["header"].get<std::uint32_t>();
    out.item(name, fmt::format("header {:#010x} ({}), entries: {}", header,
                               std::bit_cast<float>(header), table["first"].size()));
    writeItems(out, table,
               {{"    first", "{first}"}, {"    second", "{second}"}, {"    third", "{third}"}});
}

void writeFrequency(Lines& out, const Json& frequency) {
    writeItems(out, frequency,
               {{"frequency {index}", "id {id}"},
                {"  scalar", "{scalar}"},
                {"  values A", "{valuesA}"},
                {"  values B", "{valuesB}"}});
    writeWiggling(out, "  wiggling A", frequency["wigglingA"]);
    writeWiggling(out, "  wiggling B", frequency["wigglingB"]);
}

void writeMasked(Lines& out, const Json& record) {
    const Json& masked = record["maskedPixels"];
    if (!masked.is_null()) {
        out.item("masked pixels", fmt::format("{} of {}", text(masked), pixelsOf(record)));
    }
    if (masked != record["zeroMaskCount"]) {
        writeItems(out, record, {{"  as cut reports", "{zeroMaskCount}"}});
    }
}

void writeRecord(Lines& out, const Json& record) {
    writeItems(out, record,
               {{"image area", "{columns} x {rows} pixels"}, {"aux flag", "{auxFlag}"}});
    for (const auto& [key, value] : record["lens"].items()) {
        const bool inPixels = key[0] == 'f' || key[0] == 'c';
        out.item(key, text(value) + (inPixels ? " pixels" : ""));
    }
    writeItems(out, record,
               {{"text 0", "\"{text0}\""}, {"text 1", "\"{text1}\""}, {"text 2", "\"{text2}\""}});
    if (!text(record["idBytes"]).empty()) {
        out.hexItem("id bytes", text(record["idBytes"]));
    }
    writeItems(out, record, {{"id codes", "{idCodes:#06x}"}});
    writeMasked(out, record);
    for (const Json& frequency : record["frequencies"]) {
        writeFrequency(out, frequency);
    }
    if (const Json& straylight = record["straylight"]; !straylight.is_null()) {
        writeItems(
            out, straylight,
            {{"straylight", "scale {scale}, exponent {exponent}, offset {offset}, centre {centre}"},
             {"  PSF", "{psfWidth} x {psfHeight} elements"},
             {"  radius", "{radius}"},
             {"  value", "{value}"}});
    }
    for (const Json& custom : record["custom"]) {
        out.hexItem(filled("custom {id}", custom), text(custom["hex"]));
    }
    const std::string customStatus = text(record["customStatus"]);
    if (customStatus != statusName(VANTRIC_OK)) {
        out.item("custom fields",
                 fmt::format("not readable: {} ({})", customStatus, statusText(customStatus)));
    }
}

// --------------------------------------------------------------------------------------- result --

void writeResult(Lines& out, const Json& tree) {
    out.heading("Result");
    if (const Json& read = tree["read"]; !read.is_null()) {
        out.item("read",
                 filled("{status} ({code:#010x}: ", read) + statusText(text(read["status"])) + ')');
        if (!read["failedBlock"].is_null()) {
            out.item("failing block", filled("{failedBlock} (", read) +
                                          blockName(read["failedBlock"].get<std::uint32_t>()) +
                                          ')');
        }
    } else {
        out.item("read", "not attempted");
    }
    for (const Json& fault : tree["faults"]) {
        out.item("fault", text(fault["text"]), Colour::Red);
    }
    for (const Json& warning : tree["warnings"]) {
        out.item("warning", text(warning["text"]), Colour::Yellow);
    }
    if (tree["intact"]) {
        out.item("verdict", "reads", Colour::Green);
    }
}

std::string titleOf(const Json& layout) {
    if (layout == layoutName(Layout::Unknown)) {
        return "neither image nor calibration";
    }
    return layout == layoutName(Layout::Packed) ? "packed calibration" : text(layout) + " image";
}

}  // namespace

std::string textOf(const Json& tree, const TextStyle& style) {
    Lines out(style);
    out.line(fmt::format("{}: {}, {} bytes",
                         out.painted(Colour::Bold, escapePath(text(tree["file"]))),
                         titleOf(tree["layout"]), text(tree["bytes"])));
    if (!tree["image"].is_null()) {
        writeImage(out, tree["image"]);
    }
    if (!tree["calibration"].is_null()) {
        writeCalibration(out, tree["calibration"]);
    }
    if (!tree["record"].is_null()) {
        const bool complete = tree["read"]["code"] == VANTRIC_OK;
        out.heading(complete ? "Record" : "Record, as far as it was read");
        writeRecord(out, tree["record"]);
    }
    writeResult(out, tree);
    return out.take();
}

}  // namespace calcut::tools
