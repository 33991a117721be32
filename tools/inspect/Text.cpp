#include "tools/inspect/Text.h"

#include <algorithm>
#include <bit>
#include <cstdint>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "calcut/vantric_rx.h"
#include "tools/dump/Names.h"
#include "tools/inspect/Lines.h"
#include "tools/terminal/Escape.h"

namespace calcut::tools {

namespace {

/// A value as people read it; nothing for null.
std::string text(const Json& value) {
    if (value.is_string()) {
        return value.get<std::string>();
    }
    if (value.is_number_float()) {
        return fmt::format("{}", value.get<float>());
    }
    return value.is_null() ? std::string() : value.dump();
}

std::string listText(const Json& values) {
    std::string list;
    for (const Json& value : values) {
        list += (list.empty() ? "" : "  ") + text(value);
    }
    return list;
}

std::uint32_t number(const Json& value) {
    return value.get<std::uint32_t>();
}

std::string codeText(const Json& name, std::uint32_t status) {
    return fmt::format("{} (0x{:08x}: {})", text(name), status, statusText(status));
}

void writeImage(Lines& out, const Json& image) {
    out.heading("Image header");
    std::vector<TableRow> rows;
    for (const Json& field : image["fields"]) {
        rows.push_back({text(field["offset"]), text(field["name"]), text(field["text"])});
    }
    out.table({{"offset", true, 0}, {"field", false, 0}, {"value", false, 0}}, std::move(rows));
    const Json& payload = image["payload"];
    if (!payload.is_null()) {
        out.item("payload", fmt::format("{} bytes at byte {}{}", text(payload["bytes"]),
                                        text(payload["offset"]),
                                        payload["inside"] ? "" : ", not all inside the file"));
        out.item("stored CRC-32", fmt::format("0x{:08x}", number(image["storedCrc"])));
    }
    if (!image["computedCrc"].is_null()) {
        const bool matches = image["storedCrc"] == image["computedCrc"];
        out.item("computed CRC-32",
                 fmt::format("0x{:08x}  {}", number(image["computedCrc"]),
                             matches ? out.painted(Colour::Green, "matches")
                                     : out.painted(Colour::Red, "does not match")));
    }
    const Json& signature = image["signature"];
    if (!signature.is_null()) {
        out.item("signature", byteCount(number(signature["bytes"])));
        if (signature["hex"] != "") {
            out.hexItem("", text(signature["hex"]));
        }
    }
}

std::string rangeText(const Json& range) {
    if (range.is_null()) {
        return "";
    }
    std::string line = text(range["min"]);
    if (range["min"] != range["max"]) {
        line += " to " + text(range["max"]);
    }
    if (range["infinite"] != 0U) {
        line += fmt::format("{}{} infinite", line.empty() ? "" : ", ", text(range["infinite"]));
    }
    return line;
}

void writeBlocks(Lines& out, const Json& calibration) {
    out.heading("Blocks");
    std::vector<TableRow> rows;
    bool ignored = false;
    for (const Json& block : calibration["blocks"]) {
        const std::string scale = text(block["scale"]);
        rows.push_back({text(block["offset"]), text(block["id"]), text(block["name"]),
                        text(block["kind"]), text(block["count"]), text(block["bits"]),
                        scale.empty() ? "" : scale + ", " + text(block["valueOffset"]),
                        text(block["payloadOffset"]), text(block["payloadBytes"]),
                        rangeText(block["range"]), text(block["outcome"])});
        ignored = ignored || block["outcome"] == outcomeName(vantric::BlockOutcome::unknown);
    }
    if (!calibration["endMarker"].is_null()) {
        rows.push_back({text(calibration["endMarker"]), std::to_string(VANTRIC_RX_END_MARKER),
                        blockName(VANTRIC_RX_END_MARKER), "", "", "", "", "", "", "", ""});
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
    if (calibration["trailingBytes"] != 0U) {
        out.item("behind the end", text(calibration["trailingBytes"]) + " bytes");
    }
}

void writeCalibration(Lines& out, const Json& calibration) {
    out.heading("Packed calibration");
    out.item("at", fmt::format("byte {}, {} bytes", text(calibration["offset"]),
                               text(calibration["bytes"])));
    const Json& header = calibration["header"];
    if (header.is_null()) {
        return;
    }
    out.item("version", text(header["version"]));
    out.item("sensor",
             fmt::format("{} columns x {} rows, {} pixels", text(header["columns"]),
                         text(header["rows"]),
                         header["columns"].get<std::uint64_t>() * number(header["rows"])));
    writeBlocks(out, calibration);
}

void writeWiggling(Lines& out, std::string_view name, const Json& table) {
    if (table.is_null()) {
        return;
    }
    const std::uint32_t header = number(table["header"]);
    out.item(name, fmt::format("header 0x{:08x} ({}), entries: {}", header,
                               std::bit_cast<float>(header), table["third"].size()));
    for (const char* part : {"first", "second", "third"}) {
        out.item(fmt::format("    {}", part), listText(table[part]));
    }
}

void writeFrequency(Lines& out, const Json& frequency) {
    out.item("frequency " + text(frequency["index"]), "id " + text(frequency["id"]));
    if (!frequency["scalar"].is_null()) {
        out.item("  scalar", text(frequency["scalar"]));
    }
    for (const auto& [name, key] :
         {std::pair{"  values A", "valuesA"}, {"  values B", "valuesB"}}) {
        if (!frequency[key].is_null()) {
            out.item(name, listText(frequency[key]));
        }
    }
    writeWiggling(out, "  wiggling A", frequency["wigglingA"]);
    writeWiggling(out, "  wiggling B", frequency["wigglingB"]);
}

void writeStraylight(Lines& out, const Json& straylight) {
    out.item("straylight", fmt::format("scale {}, exponent {}, offset {}, centre {}",
                                       text(straylight["scale"]), text(straylight["exponent"]),
                                       text(straylight["offset"]), text(straylight["centre"])));
    out.item("  PSF", fmt::format("{} x {} elements", text(straylight["psfWidth"]),
                                  text(straylight["psfHeight"])));
    out.item("  radius", listText(straylight["radius"]));
    out.item("  value", listText(straylight["value"]));
}

void writeIdentity(Lines& out, const Json& record) {
    if (!record["auxFlag"].is_null()) {
        out.item("aux flag", text(record["auxFlag"]));
    }
    for (const auto& [name, value] : record["lens"].items()) {
        const bool inPixels = name.front() == 'f' || name.front() == 'c';
        out.item(name, text(value) + (inPixels ? " pixels" : ""));
    }
    for (const auto& [name, key] :
         {std::pair{"text 0", "text0"}, {"text 1", "text1"}, {"text 2", "text2"}}) {
        if (!record[key].is_null()) {
            out.item(name, fmt::format("\"{}\"", text(record[key])));
        }
    }
    if (record["idBytes"] != "") {
        out.hexItem("id bytes", text(record["idBytes"]));
    }
    const Json& codes = record["idCodes"];
    if (!codes.is_null()) {
        out.item("id codes", fmt::format("0x{:04x}  0x{:04x}", number(codes[0]), number(codes[1])));
    }
}

void writeRecord(Lines& out, const Json& record, bool complete) {
    out.heading(complete ? "Record" : "Record, as far as it was read");
    out.item("image area",
             fmt::format("{} x {} pixels", text(record["columns"]), text(record["rows"])));
    writeIdentity(out, record);
    if (!record["maskedPixels"].is_null()) {
        out.item("masked pixels",
                 fmt::format("{} of {}", text(record["maskedPixels"]),
                             record["columns"].get<std::uint64_t>() * number(record["rows"])));
        if (record["zeroMaskCount"] != record["maskedPixels"]) {
            out.item("  as cut reports", text(record["zeroMaskCount"]));
        }
    }
    for (const Json& frequency : record["frequencies"]) {
        writeFrequency(out, frequency);
    }
    if (!record["straylight"].is_null()) {
        writeStraylight(out, record["straylight"]);
    }
    for (const Json& custom : record["custom"]) {
        out.hexItem("custom " + text(custom["id"]), text(custom["hex"]));
    }
}

void writeResult(Lines& out, const Json& tree) {
    out.heading("Result");
    const Json& read = tree["read"];
    out.item("read",
             read.is_null() ? "not attempted" : codeText(read["status"], number(read["code"])));
    if (!read.is_null() && !read["failedBlock"].is_null()) {
        const std::uint32_t id = number(read["failedBlock"]);
        out.item("failing block", fmt::format("{} ({})", id, blockName(id)));
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
        writeRecord(out, tree["record"], tree["read"]["code"] == VANTRIC_OK);
    }
    writeResult(out, tree);
    return out.take();
}

}  // namespace calcut::tools
