#include "tools/inspect/Text.h"

#include <algorithm>
#include <cctype>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "tools/dump/Names.h"
#include "tools/inspect/Lines.h"
#include "tools/terminal/Escape.h"

namespace calcut::tools {

namespace {

/// Numbers that people know by their hexadecimal digits.
constexpr std::string_view hexadecimalKeys[] = {"storedCrc", "computedCrc", "code", "header",
                                                "idCodes"};
/// Bytes, shown in lines of 32.
constexpr std::string_view byteKeys[] = {"hex", "idBytes"};

bool isOneOf(std::string_view key, std::span<const std::string_view> keys) {
    return std::find(keys.begin(), keys.end(), key) != keys.end();
}

/// A value as people read it; nothing for null.
std::string text(const Json& value, bool hexadecimal = false) {
    if (value.is_string()) {
        return value.get<std::string>();
    }
    if (value.is_number_float()) {
        return fmt::format("{}", value.get<float>());
    }
    if (value.is_array()) {
        std::string list;
        for (const Json& element : value) {
            list += (list.empty() ? "" : "  ") + text(element, hexadecimal);
        }
        return list;
    }
    if (hexadecimal && value.is_number()) {
        return fmt::format("{:#x}", value.get<std::uint32_t>());
    }
    return value.is_null() ? std::string() : value.dump();
}

/// "maskedPixels" becomes "masked pixels", "valuesA" "values A".
std::string label(std::string_view key) {
    std::string words;
    for (std::size_t at = 0; at < key.size(); ++at) {
        const bool capital = std::isupper(static_cast<unsigned char>(key[at])) != 0;
        words += capital ? " " : "";
        words += capital && at + 1 < key.size() ? static_cast<char>(key[at] - 'A' + 'a') : key[at];
    }
    return words;
}

void writeFields(Lines& out, const Json& fields) {
    std::vector<TableRow> rows;
    for (const Json& field : fields) {
        rows.push_back({text(field["offset"]), text(field["name"]), text(field["text"])});
    }
    out.table({{"offset", true, 0}, {"field", false, 0}, {"value", false, 0}}, std::move(rows));
}

std::string rangeText(const Json& range) {
    std::string line;
    if (!range.is_null()) {
        line = text(range["min"]);
        line += range["min"] != range["max"] ? " to " + text(range["max"]) : "";
        line += range["infinite"] != 0U ? " and " + text(range["infinite"]) + " infinite" : "";
    }
    return line;
}

void writeBlocks(Lines& out, const Json& blocks) {
    out.heading("Blocks");
    std::vector<TableRow> rows;
    for (const Json& block : blocks) {
        const std::string scale = text(block["scale"]);
        rows.push_back({text(block["offset"]), text(block["id"]), text(block["name"]),
                        text(block["kind"]), text(block["count"]), text(block["bits"]),
                        scale.empty() ? "" : scale + ", " + text(block["valueOffset"]),
                        text(block["payloadOffset"]), text(block["payloadBytes"]),
                        rangeText(block["range"]), text(block["outcome"])});
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
}

void writeParts(Lines& out, const Json& tree, const std::string& indent);

void writePart(Lines& out, const std::string& key, const Json& value, const std::string& indent) {
    const std::string name = indent + label(key);
    if (key == "fields") {
        writeFields(out, value);
    } else if (key == "blocks") {
        writeBlocks(out, value);
    } else if (value.is_object()) {
        out.item(name, "");
        writeParts(out, value, indent + "  ");
    } else if (value.is_array() && !value.empty() && value.front().is_object()) {
        for (std::size_t i = 0; i < value.size(); ++i) {
            out.item(fmt::format("{} {}", name, i), "");
            writeParts(out, value[i], indent + "  ");
        }
    } else if (isOneOf(key, byteKeys)) {
        out.hexItem(name, text(value));
    } else if (key.starts_with("text")) {
        out.item(name, fmt::format("\"{}\"", text(value)));
    } else {
        out.item(name, text(value, isOneOf(key, hexadecimalKeys)));
    }
}

/// What is null or empty was not there and is left out.
void writeParts(Lines& out, const Json& tree, const std::string& indent) {
    for (const auto& [key, value] : tree.items()) {
        if (!value.empty()) {
            writePart(out, key, value, indent);
        }
    }
}

void writeResult(Lines& out, const Json& tree) {
    out.heading("Result");
    if (tree["read"].is_null()) {
        out.item("read", "not attempted");
    }
    writeParts(out, tree["read"], "");
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
    for (const auto& [key, title] : {std::pair{"image", "Image header"},
                                     {"calibration", "Packed calibration"},
                                     {"record", "Record, as far as it was read"}}) {
        if (!tree[key].is_null()) {
            out.heading(key == std::string_view("record") && tree["intact"] ? "Record" : title);
            writeParts(out, tree[key], "");
        }
    }
    writeResult(out, tree);
    return out.take();
}

}  // namespace calcut::tools
