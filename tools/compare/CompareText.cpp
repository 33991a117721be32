#include "tools/compare/CompareText.h"

#include <algorithm>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "tools/inspect/Lines.h"
#include "tools/terminal/Escape.h"

namespace calcut::tools {

namespace {

/// A single value; what is missing or NaN is a dash.
std::string text(const Json& value) {
    if (value.is_null()) {
        return "-";
    }
    if (value.is_string()) {
        return value.get<std::string>();
    }
    return value.is_number_float() ? fmt::format("{}", value.get<float>()) : value.dump();
}

/// A difference that the eye can place: its sign, and no more digits than it has a meaning with.
std::string signedText(const Json& value) {
    return value.is_null() ? "-" : fmt::format("{:+.6g}", value.get<double>());
}

bool anyDiffers(const Json& list) {
    return std::any_of(list.begin(), list.end(),
                       [](const Json& entry) { return entry["differs"].get<bool>(); });
}

std::string moduleText(const Json& module) {
    return fmt::format("{} ({}, {} x {} pixels)", escapePath(text(module["file"])),
                       text(module["layout"]), text(module["columns"]), text(module["rows"]));
}

std::string storageText(const Json& block) {
    if (block.is_null()) {
        return "missing";
    }
    const std::string bits =
        block["bits"].is_null() ? "" : fmt::format(", {} bits", text(block["bits"]));
    return fmt::format("{} x {}{}, {} bytes", text(block["count"]), text(block["kind"]), bits,
                       text(block["payloadBytes"]));
}

void writeBlocks(Lines& out, const Json& blocks) {
    std::vector<TableRow> rows;
    for (const Json& block : blocks) {
        if (block["differs"]) {
            rows.push_back({text(block["id"]), text(block["name"]), storageText(block["a"]),
                            storageText(block["b"]), text(block["differingBytes"])});
        }
    }
    out.heading("Blocks");
    out.item("stored the same",
             fmt::format("{} of {}", blocks.size() - rows.size(), blocks.size()));
    if (!rows.empty()) {
        out.table({{"id", true, 0},
                   {"name", false, 0},
                   {"A", false, 1},
                   {"B", false, 2},
                   {"differing bytes", true, 0}},
                  std::move(rows));
    }
}

void writeLens(Lines& out, const Json& lens) {
    if (lens.is_null() || !anyDiffers(lens)) {
        return;
    }
    std::vector<TableRow> rows;
    for (const auto& [name, value] : lens.items()) {
        rows.push_back({name, text(value["a"]), text(value["b"]), signedText(value["difference"])});
    }
    out.heading("Lens");
    out.table({{"parameter", false, 0}, {"A", true, 0}, {"B", true, 0}, {"B - A", true, 0}},
              std::move(rows));
}

std::string shapeText(const Json& shape) {
    return shape.is_null() ? "missing"
                           : fmt::format("{} x {}", text(shape["columns"]), text(shape["rows"]));
}

TableRow tableRow(const Json& table) {
    if (table["elements"].is_null()) {
        return {text(table["title"]), "all", "-", "-",
                fmt::format("A: {}, B: {}", shapeText(table["a"]), shapeText(table["b"]))};
    }
    TableRow row = {text(table["title"]),
                    fmt::format("{} of {}", text(table["differing"]), text(table["elements"])),
                    fmt::format("{:.4g}", table["rms"].get<double>()), "0", ""};
    if (const Json& max = table["max"]; !max.is_null()) {
        row[3] = signedText(max["difference"]);
        row[4] = fmt::format("column {}, row {}", text(max["column"]), text(max["row"]));
        row[4] += max["channel"].is_null() ? "" : fmt::format(" ({})", text(max["channel"]));
    }
    if (table["unmeasured"] != 0) {
        row[4] += fmt::format("{}{} not finite on one side", row[4].empty() ? "" : "; ",
                              text(table["unmeasured"]));
    }
    return row;
}

void writeTables(Lines& out, const Json& tables) {
    if (tables.empty()) {
        return;
    }
    std::vector<TableRow> rows;
    std::transform(tables.begin(), tables.end(), std::back_inserter(rows), tableRow);
    out.heading("Tables");
    out.table({{"table", false, 0},
               {"differing", true, 0},
               {"RMS", true, 1},
               {"maximum", true, 0},
               {"maximum at", false, 0}},
              std::move(rows));
}

void writeValues(Lines& out, const Json& values) {
    if (values.empty()) {
        return;
    }
    std::vector<TableRow> rows;
    for (const Json& value : values) {
        rows.push_back({text(value["name"]), text(value["a"]), text(value["b"]),
                        signedText(value["difference"])});
    }
    out.heading("Other values");
    out.table({{"value", false, 0}, {"A", true, 0}, {"B", true, 0}, {"B - A", true, 0}},
              std::move(rows));
}

}  // namespace

std::string compareText(const Json& tree, const TextStyle& style) {
    Lines out(style);
    out.item("A", moduleText(tree["a"]));
    out.item("B", moduleText(tree["b"]));
    writeBlocks(out, tree["blocks"]);
    writeLens(out, tree["lens"]);
    writeTables(out, tree["tables"]);
    writeValues(out, tree["values"]);
    out.heading("Result");
    const bool equal = tree["equal"];
    const std::string within =
        tree["tolerance"].is_null() ? "" : ", within " + text(tree["tolerance"]);
    out.item("verdict", equal ? "equal" + within : "different",
             equal ? Colour::Green : Colour::Yellow);
    return out.take();
}

}  // namespace calcut::tools
