#include "tools/compare/Compare.h"

#include <algorithm>
#include <exception>

#include <fmt/format.h>

#include "tools/commands.h"
#include "tools/compare/CompareTree.h"
#include "tools/compare/LoadedModule.h"
#include "tools/terminal/Escape.h"
#include "tools/terminal/OutputFile.h"
#include "tools/terminal/Terminal.h"

namespace calcut::tools {

namespace {

constexpr const char* missing = "-";

/// A table, unless it has no rows. The columns of a pair of values are always the same.
void writeTable(Lines& out, const char* heading, const std::vector<TableColumn>& columns,
                const Json& rows) {
    if (!rows.empty()) {
        out.heading(heading);
        out.table(columns, rows, missing);
    }
}

/// Values of A and B, and a difference that the eye can place: its sign, and no more digits than it
/// has a meaning with.
std::vector<TableColumn> valueColumns(std::string_view heading) {
    return {{heading, "{name}"},
            {"A", "{a}", true},
            {"B", "{b}", true},
            {"B - A", "{difference:+.6g}", true}};
}

std::string moduleText(const Json& module) {
    return escapePath(text(module["file"])) +
           filled(" ({layout}, {columns} x {rows} pixels)", module);
}

std::string storageText(const Json& block) {
    return block.is_null() ? "missing"
                           : filled("{count} x {kind}", block) + filled(", {bits} bits", block) +
                                 filled(", {payloadBytes} bytes", block);
}

void writeBlocks(Lines& out, const Json& blocks) {
    Json rows = Json::array();
    for (const Json& block : blocks) {
        if (block["differs"]) {
            Json& row = rows.emplace_back(block);
            row["a"] = storageText(block["a"]);
            row["b"] = storageText(block["b"]);
        }
    }
    out.heading("Blocks");
    out.item("stored the same",
             fmt::format("{} of {}", blocks.size() - rows.size(), blocks.size()));
    if (!rows.empty()) {
        out.table({{"id", "{id}", true},
                   {"name", "{name}"},
                   {"A", "{a}", false, 1},
                   {"B", "{b}", false, 2},
                   {"differing bytes", "{differingBytes}", true}},
                  rows, missing);
    }
}

/// All of them, as soon as one differs.
Json lensRows(const Json& lens) {
    Json rows = Json::array();
    bool differ = false;
    for (const auto& [name, value] : lens.items()) {
        rows.push_back(value);
        rows.back()["name"] = name;
        differ = differ || value["differs"];
    }
    return differ ? rows : Json::array();
}

Json tableRow(const Json& table) {
    const auto shape = [](const Json& of) {
        return of.is_null() ? "missing" : filled("{columns} x {rows}", of);
    };
    Json row = {{"title", table["title"]}, {"differing", "all"}, {"max", missing}};
    if (table["elements"].is_null()) {
        row["at"] = fmt::format("A: {}, B: {}", shape(table["a"]), shape(table["b"]));
        return row;
    }
    const Json& max = table["max"];
    std::string at =
        filled("column {max/column}, row {max/row}", table) + filled(" ({max/channel})", table);
    if (table["unmeasured"] != 0) {
        at += (at.empty() ? "" : "; ") + filled("{unmeasured} not finite on one side", table);
    }
    row["differing"] = filled("{differing} of {elements}", table);
    row["rms"] = table["rms"];
    row["max"] = max.is_null() ? "0" : filled("{difference:+.6g}", max);
    row["at"] = at;
    return row;
}

std::unique_ptr<LoadedModule> load(const std::string& path, const CompareOptions& options) {
    std::unique_ptr<LoadedModule> module;
    const auto work = [&] {
        module = loadModule(path, options.layout, options.maxSize);
        return exitOk;
    };
    (void)guarded(work, exitNotCompared);
    return module;
}

int compare(const CompareOptions& options, DrawDifferences draw) {
    if (draw != nullptr) {
        checkWritable(options.output, {options.a, options.b});
    }
    // Both are tried, so that one run tells about both.
    const auto a = load(options.a, options);
    const auto b = load(options.b, options);
    if (!a || !b) {
        return exitNotCompared;
    }
    const Json tree =
        compareTree({options.a, a->diagnosis}, {options.b, b->diagnosis}, options.tolerance);
    if (draw != nullptr) {
        writePicture(options.output, draw(a->diagnosis, b->diagnosis, options.output));
    }
    if (options.json) {
        writeStdout(jsonText(tree, 2) + "\n");
    } else {
        print(compareText(tree, styleOfStdout()));
    }
    finishStdout();
    return tree["equal"].get<bool>() ? exitOk : exitFailed;
}

}  // namespace

std::string compareText(const Json& tree, const TextStyle& style) {
    Lines out(style);
    out.item("A", moduleText(tree["a"]));
    out.item("B", moduleText(tree["b"]));
    writeBlocks(out, tree["blocks"]);
    writeTable(out, "Lens", valueColumns("parameter"), lensRows(tree["lens"]));
    Json tables = Json::array();
    std::transform(tree["tables"].begin(), tree["tables"].end(), std::back_inserter(tables),
                   tableRow);
    writeTable(out, "Tables",
               {{"table", "{title}"},
                {"differing", "{differing}", true},
                {"RMS", "{rms:.4g}", true, 1},
                {"maximum", "{max}", true},
                {"maximum at", "{at}"}},
               tables);
    writeTable(out, "Other values", valueColumns("value"), tree["values"]);
    out.heading("Result");
    const bool equal = tree["equal"];
    out.item("verdict", equal ? "equal" + filled(", within {tolerance}", tree) : "different",
             equal ? Colour::Green : Colour::Yellow);
    return out.take();
}

int runCompare(const CompareOptions& options, DrawDifferences (*load)()) {
    // To whoever asks by the exit status, nothing that goes wrong may look like a difference.
    return guarded([&] { return compare(options, options.output.empty() ? nullptr : load()); },
                   exitNotCompared);
}

}  // namespace calcut::tools
