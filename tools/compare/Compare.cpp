#include "tools/compare/Compare.h"

#include <algorithm>
#include <exception>

#include <fmt/format.h>

#include "tools/commands.h"
#include "tools/compare/CompareTree.h"
#include "tools/files/OutputFile.h"
#include "tools/module/Module.h"
#include "tools/text/Escape.h"
#include "tools/text/Terminal.h"

namespace calcut::compare {

namespace {

constexpr const char* missing = "-";

/// A table, unless it has no rows. The columns of a pair of values are always the same.
void writeTable(text::Lines& out, const char* heading,
                const std::vector<text::TableColumn>& columns, const text::Json& rows) {
    if (!rows.empty()) {
        out.heading(heading);
        out.table(columns, rows, missing);
    }
}

/// Values of A and B, and a difference that the eye can place: its sign, and no more digits than it
/// has a meaning with.
std::vector<text::TableColumn> valueColumns(std::string_view heading) {
    return {{heading, "{name}"},
            {"A", "{a}", true},
            {"B", "{b}", true},
            {"B - A", "{difference:+.6g}", true}};
}

std::string moduleText(const text::Json& module) {
    return text::escapePath(text::valueText(module["file"])) +
           text::filled(" ({layout}, {columns} x {rows} pixels)", module);
}

std::string storageText(const text::Json& block) {
    return block.is_null()
               ? "missing"
               : text::filled("{count} x {kind}", block) + text::filled(", {bits} bits", block) +
                     text::filled(", {payloadBytes} bytes", block);
}

void writeBlocks(text::Lines& out, const text::Json& blocks) {
    text::Json rows = text::Json::array();
    for (const text::Json& block : blocks) {
        if (block["differs"]) {
            text::Json& row = rows.emplace_back(block);
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
text::Json lensRows(const text::Json& lens) {
    text::Json rows = text::Json::array();
    bool differ = false;
    for (const auto& [name, value] : lens.items()) {
        rows.push_back(value);
        rows.back()["name"] = name;
        differ = differ || value["differs"];
    }
    return differ ? rows : text::Json::array();
}

text::Json tableRow(const text::Json& table) {
    const auto shape = [](const text::Json& of) {
        return of.is_null() ? "missing" : text::filled("{columns} x {rows}", of);
    };
    text::Json row = {{"title", table["title"]}, {"differing", "all"}, {"max", missing}};
    if (table["elements"].is_null()) {
        row["at"] = fmt::format("A: {}, B: {}", shape(table["a"]), shape(table["b"]));
        return row;
    }
    const text::Json& max = table["max"];
    std::string at = text::filled("column {max/column}, row {max/row}", table) +
                     text::filled(" ({max/channel})", table);
    if (table["unmeasured"] != 0) {
        at += (at.empty() ? "" : "; ") + text::filled("{unmeasured} not finite on one side", table);
    }
    row["differing"] = text::filled("{differing} of {elements}", table);
    row["rms"] = table["rms"];
    row["max"] = max.is_null() ? "0" : text::filled("{difference:+.6g}", max);
    row["at"] = at;
    return row;
}

std::unique_ptr<module::Module> load(const std::string& path, const CompareOptions& options) {
    std::unique_ptr<module::Module> module;
    const auto work = [&] {
        module = module::loadModule(path, options.layout, options.maxSize,
                                    module::Faults::toleratedInImage);
        return exitOk;
    };
    (void)text::guarded(work, exitNotCompared);
    return module;
}

int compare(const CompareOptions& options, DrawDifferences draw) {
    const bool drawn = !options.output.empty();
    if (drawn) {
        files::checkWritable(options.output, {options.a, options.b}, true);
    }
    // Both are tried, so that one run tells about both.
    const auto a = load(options.a, options);
    const auto b = load(options.b, options);
    if (!a || !b) {
        return exitNotCompared;
    }
    const text::Json tree =
        compareTree({options.a, a->diagnosis}, {options.b, b->diagnosis}, options.tolerance);
    if (drawn) {
        files::writeOutput(options.output, draw(a->diagnosis, b->diagnosis, options));
    }
    if (options.json) {
        text::writeStdout(text::jsonText(tree, 2) + "\n");
    } else {
        text::print(compareText(tree, text::styleOfStdout()));
    }
    text::finishStdout();
    return tree["equal"].get<bool>() ? exitOk : exitFailed;
}

}  // namespace

std::string compareText(const text::Json& tree, const text::TextStyle& style) {
    text::Lines out(style);
    out.item("A", moduleText(tree["a"]));
    out.item("B", moduleText(tree["b"]));
    writeBlocks(out, tree["blocks"]);
    writeTable(out, "Lens", valueColumns("parameter"), lensRows(tree["lens"]));
    text::Json tables = text::Json::array();
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
    out.item("verdict", equal ? "equal" + text::filled(", within {tolerance}", tree) : "different",
             equal ? text::Colour::Green : text::Colour::Yellow);
    return out.take();
}

int runCompare(const CompareOptions& options, DrawDifferences draw) {
    // To whoever asks by the exit status, nothing that goes wrong may look like a difference.
    return text::guarded([&] { return compare(options, draw); }, exitNotCompared);
}

}  // namespace calcut::compare
