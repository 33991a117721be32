#include "tools/inspect/Text.h"

#include <algorithm>
#include <bit>

#include <fmt/format.h>

#include "tools/dump/Names.h"
#include "tools/terminal/Escape.h"

namespace calcut::tools {

namespace {

std::uint64_t pixelsOf(const Json& size) {
    return size["columns"].get<std::uint64_t>() * size["rows"].get<std::uint64_t>();
}

void writeImage(Lines& out, const Json& image) {
    out.heading("Image header");
    out.table({{"offset", "{offset}", true}, {"field", "{name}"}, {"value", "{text}"}},
              image["fields"]);
    const Json& payload = image["payload"];
    const bool cutShort = !payload.is_null() && !payload["inside"];
    const bool matches = image["computedCrc"] == image["storedCrc"];
    out.items(image,
              {{"payload", std::string("{payload/bytes} bytes at byte {payload/offset}") +
                               (cutShort ? ", not all inside the file" : "")},
               {"stored CRC-32", "{storedCrc:#010x}"},
               {"computed CRC-32",
                std::string("{computedCrc:#010x}  ") + (matches ? "matches" : "does not match"),
                matches ? Colour::Green : Colour::Red},
               {"signature", "{signature/bytes} bytes"}});
    if (const Json& signature = image["signature"]; !signature.is_null()) {
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
    Json rows = calibration["blocks"];
    bool ignored = false;
    for (Json& row : rows) {
        ignored = ignored || row["outcome"] == outcomeName(vantric::BlockOutcome::unknown);
        row["range"] = rangeText(row["range"]);
    }
    if (const Json& end = calibration["endMarker"]; !end.is_null()) {
        rows.push_back({{"offset", end},
                        {"id", VANTRIC_RX_END_MARKER},
                        {"name", blockName(VANTRIC_RX_END_MARKER)}});
    }
    out.table({{"offset", "{offset}", true, 7},
               {"id", "{id}", true},
               {"what", "{name}"},
               {"kind", "{kind}", false, 5},
               {"count", "{count}", true, 6},
               {"bits", "{bits}", true, 4},
               {"scale, offset", "{scale}, {valueOffset}", false, 2},
               {"payload at", "{payloadOffset}", true, 1},
               {"bytes", "{payloadBytes}", true, 3},
               {"values", "{range}", false, 8},
               {"read", "{outcome}"}},
              rows);
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
    out.items(calibration, {{"at", "byte {offset}, {bytes} bytes"}});
    if (const Json& header = calibration["header"]; !header.is_null()) {
        out.items(header, {{"version", "{version}"},
                           {"sensor", fmt::format("{{columns}} columns x {{rows}} rows, {} pixels",
                                                  pixelsOf(header))}});
        writeBlocks(out, calibration);
    }
}

// --------------------------------------------------------------------------------------- record --

void writeWiggling(Lines& out, const char* name, const Json& table) {
    if (!table.is_null()) {
        const auto header = std::bit_cast<float>(table["header"].get<std::uint32_t>());
        out.items(table, {{name, fmt::format("header {{header:#010x}} ({}), entries: {}", header,
                                             table["first"].size())},
                          {"    first", "{first}"},
                          {"    second", "{second}"},
                          {"    third", "{third}"}});
    }
}

void writeRecord(Lines& out, const Json& record) {
    out.items(record, {{"image area", "{columns} x {rows} pixels"}, {"aux flag", "{auxFlag}"}});
    for (const auto& [key, value] : record["lens"].items()) {
        const bool inPixels = key[0] == 'f' || key[0] == 'c';
        out.item(key, text(value) + (inPixels ? " pixels" : ""));
    }
    out.items(record,
              {{"text 0", "\"{text0}\""}, {"text 1", "\"{text1}\""}, {"text 2", "\"{text2}\""}});
    if (const std::string idBytes = text(record["idBytes"]); !idBytes.empty()) {
        out.hexItem("id bytes", idBytes);
    }
    const bool cutCountsAll = record["maskedPixels"] == record["zeroMaskCount"];
    out.items(record, {{"id codes", "{idCodes:#06x}"},
                       {"masked pixels", fmt::format("{{maskedPixels}} of {}", pixelsOf(record))},
                       {"  as cut reports", cutCountsAll ? "" : "{zeroMaskCount}"}});
    for (const Json& frequency : record["frequencies"]) {
        out.items(frequency, {{"frequency {index}", "id {id}"},
                              {"  scalar", "{scalar}"},
                              {"  values A", "{valuesA}"},
                              {"  values B", "{valuesB}"}});
        writeWiggling(out, "  wiggling A", frequency["wigglingA"]);
        writeWiggling(out, "  wiggling B", frequency["wigglingB"]);
    }
    out.items(record, {{"straylight",
                        "scale {straylight/scale}, exponent {straylight/exponent}, offset "
                        "{straylight/offset}, centre {straylight/centre}"},
                       {"  PSF", "{straylight/psfWidth} x {straylight/psfHeight} elements"},
                       {"  radius", "{straylight/radius}"},
                       {"  value", "{straylight/value}"}});
    for (const Json& custom : record["custom"]) {
        out.hexItem(filled("custom {id}", custom), text(custom["hex"]));
    }
    const std::string status = text(record["customStatus"]);
    if (status != statusName(VANTRIC_OK)) {
        out.item("custom fields", fmt::format("not readable: {} ({})", status, statusText(status)));
    }
}

// --------------------------------------------------------------------------------------- result --

void writeResult(Lines& out, const Json& tree) {
    out.heading("Result");
    if (const Json& read = tree["read"]; !read.is_null()) {
        const Json& failed = read["failedBlock"];
        out.items(read, {{"read", fmt::format("{{status}} ({{code:#010x}}: {})",
                                              statusText(text(read["status"])))},
                         {"failing block",
                          failed.is_null() ? ""
                                           : fmt::format("{{failedBlock}} ({})",
                                                         blockName(failed.get<std::uint32_t>()))}});
    } else {
        out.item("read", "not attempted");
    }
    out.items(tree["faults"], {{"fault", "{text}", Colour::Red}});
    out.items(tree["warnings"], {{"warning", "{text}", Colour::Yellow}});
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
