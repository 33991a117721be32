#include "tools/inspect/Text.h"

#include <algorithm>
#include <bit>

#include <fmt/format.h>

#include "tools/module/Layout.h"
#include "tools/module/Names.h"
#include "tools/text/Escape.h"

namespace calcut::inspect {

namespace {

std::uint64_t pixelsOf(const text::Json& size) {
    return size["columns"].get<std::uint64_t>() * size["rows"].get<std::uint64_t>();
}

void writeImage(text::Lines& out, const text::Json& image) {
    out.heading("Image header");
    out.table({{"offset", "{offset}", true}, {"field", "{name}"}, {"value", "{text}"}},
              image["fields"]);
    const text::Json& payload = image["payload"];
    const bool cutShort = !payload.is_null() && !payload["inside"];
    const bool matches = image["computedCrc"] == image["storedCrc"];
    out.items(image,
              {{"payload", std::string("{payload/bytes} bytes at byte {payload/offset}") +
                               (cutShort ? ", not all inside the file" : "")},
               {"stored CRC-32", "{storedCrc:#010x}"},
               {"computed CRC-32",
                std::string("{computedCrc:#010x}  ") + (matches ? "matches" : "does not match"),
                matches ? text::Colour::Green : text::Colour::Red},
               {"signature", "{signature/bytes} bytes"}});
    if (const text::Json& signature = image["signature"]; !signature.is_null()) {
        out.hexItem("", text::valueText(signature["hex"]));
    }
}

// ---------------------------------------------------------------------------------- calibration --

std::string rangeText(const text::Json& range) {
    if (range.is_null()) {
        return {};
    }
    std::string line =
        text::filled(range["min"] == range["max"] ? "{min}" : "{min} to {max}", range);
    if (range["infinite"] != 0) {
        line += (line.empty() ? "" : ", ") + text::filled("{infinite} not finite", range);
    }
    return line;
}

void writeBlocks(text::Lines& out, const text::Json& calibration) {
    out.heading("Blocks");
    text::Json rows = calibration["blocks"];
    bool ignored = false;
    for (text::Json& row : rows) {
        ignored = ignored || row["outcome"] == module::outcomeName(vantric::BlockOutcome::unknown);
        row["range"] = rangeText(row["range"]);
    }
    if (const text::Json& end = calibration["endMarker"]; !end.is_null()) {
        rows.push_back({{"offset", end},
                        {"id", VANTRIC_RX_END_MARKER},
                        {"name", module::blockName(VANTRIC_RX_END_MARKER)}});
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
        out.item(text::byteCount(trailing) + " behind the end marker", "");
    }
}

void writeCalibration(text::Lines& out, const text::Json& calibration) {
    out.heading("Packed calibration");
    out.items(calibration, {{"at", "byte {offset}, {bytes} bytes"}});
    if (const text::Json& header = calibration["header"]; !header.is_null()) {
        out.items(header, {{"version", "{version}"},
                           {"sensor", fmt::format("{{columns}} columns x {{rows}} rows, {} pixels",
                                                  pixelsOf(header))}});
        writeBlocks(out, calibration);
    }
}

// --------------------------------------------------------------------------------------- record --

void writeWiggling(text::Lines& out, const char* name, const text::Json& table) {
    if (!table.is_null()) {
        const auto header = std::bit_cast<float>(table["header"].get<std::uint32_t>());
        out.items(table, {{name, fmt::format("header {{header:#010x}} ({}), entries: {}", header,
                                             table["first"].size())},
                          {"    first", "{first}"},
                          {"    second", "{second}"},
                          {"    third", "{third}"}});
    }
}

void writeRecord(text::Lines& out, const text::Json& record) {
    out.items(record, {{"image area", "{columns} x {rows} pixels"}, {"aux flag", "{auxFlag}"}});
    for (const auto& [key, value] : record["lens"].items()) {
        const bool inPixels = key[0] == 'f' || key[0] == 'c';
        out.item(key, text::valueText(value) + (inPixels ? " pixels" : ""));
    }
    out.items(record,
              {{"text 0", "\"{text0}\""}, {"text 1", "\"{text1}\""}, {"text 2", "\"{text2}\""}});
    if (const std::string idBytes = text::valueText(record["idBytes"]); !idBytes.empty()) {
        out.hexItem("id bytes", idBytes);
    }
    const bool cutCountsAll = record["maskedPixels"] == record["zeroMaskCount"];
    out.items(record, {{"id codes", "{idCodes:#06x}"},
                       {"masked pixels", fmt::format("{{maskedPixels}} of {}", pixelsOf(record))},
                       {"  as cut reports", cutCountsAll ? "" : "{zeroMaskCount}"}});
    for (const text::Json& frequency : record["frequencies"]) {
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
    for (const text::Json& custom : record["custom"]) {
        out.hexItem(text::filled("custom {id}", custom), text::valueText(custom["hex"]));
    }
    const std::string status = text::valueText(record["customStatus"]);
    if (status != module::statusName(VANTRIC_OK)) {
        out.item("custom fields",
                 fmt::format("not readable: {} ({})", status, module::statusText(status)));
    }
}

// --------------------------------------------------------------------------------------- result --

void writeResult(text::Lines& out, const text::Json& tree) {
    out.heading("Result");
    if (const text::Json& read = tree["read"]; !read.is_null()) {
        const text::Json& failed = read["failedBlock"];
        out.items(read, {{"read", fmt::format("{{status}} ({{code:#010x}}: {})",
                                              module::statusText(text::valueText(read["status"])))},
                         {"failing block",
                          failed.is_null()
                              ? ""
                              : fmt::format("{{failedBlock}} ({})",
                                            module::blockName(failed.get<std::uint32_t>()))}});
    } else {
        out.item("read", "not attempted");
    }
    out.items(tree["faults"], {{"fault", "{text}", text::Colour::Red}});
    out.items(tree["warnings"], {{"warning", "{text}", text::Colour::Yellow}});
    if (tree["intact"]) {
        out.item("verdict", "reads", text::Colour::Green);
    }
}

std::string titleOf(const text::Json& layout) {
    if (layout == module::Layout::Unknown.name) {
        return "neither image nor calibration";
    }
    return layout == module::Layout::Packed.name
               ? "packed calibration"
               : text::valueText(layout) + " image";
}

}  // namespace

std::string textOf(const text::Json& tree, const text::TextStyle& style) {
    text::Lines out(style);
    out.line(fmt::format(
        "{}: {}, {} bytes",
        out.painted(text::Colour::Bold, text::escapePath(text::valueText(tree["file"]))),
        titleOf(tree["layout"]), text::valueText(tree["bytes"])));
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

}  // namespace calcut::inspect
