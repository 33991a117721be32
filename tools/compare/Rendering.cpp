// A comparison as text and as JSON.
#include <algorithm>
#include <utility>

#include <fmt/format.h>

#include "calibration/packed/Block.h"
#include "tools/compare/Comparison.h"
#include "tools/module/Names.h"
#include "tools/module/Tree.h"
#include "tools/text/Escape.h"

namespace calcut::compare {

namespace {

using module::orNull;

constexpr const char* missing = "-";

std::string numberText(double number) {
    return fmt::format("{:+.6g}", static_cast<float>(number));
}

/// Where the largest difference of a table is.
struct Place {
    std::uint64_t column, row;
    std::string channel;  ///< empty for a table without
};

Place placeOf(const TablePair& pair) {
    const module::Table& table = pair.known();
    const std::uint64_t at = pair.difference.maxAt;
    return {at / table.channels % table.columns, at / table.channels / table.columns,
            module::channelName(table, static_cast<unsigned>(at % table.channels))};
}

// ----------------------------------------------------------------------------------------- JSON --

text::Json moduleTree(const std::string& path, const module::Diagnosis& about) {
    const VantricImagerArea& area = about.record->imagerArea;
    return {{"file", path},
            {"layout", about.layout.name},
            {"columns", area.columns},
            {"rows", area.rows}};
}

text::Json blockTree(const BlockPair& block) {
    Pair<text::Json> sides;
    for (const std::size_t side : {0U, 1U}) {
        if (const auto* of = block.sides.at(side)) {
            sides.at(side) = module::storageTree(of->header);
            sides.at(side)["payloadBytes"] = of->payloadSize;
        }
    }
    return {{"id", block.id},
            {"name", module::blockName(block.id)},
            {"a", sides[0]},
            {"b", sides[1]},
            {"differingBytes", orNull(block.both(), block.differingBytes)},
            {"differs", block.differs}};
}

text::Json valueTree(const ValuePair& pair) {
    return {{"a", pair.sides[0]},
            {"b", pair.sides[1]},
            {"difference",
             orNull(pair.difference.has_value(), static_cast<float>(pair.difference.value_or(0)))}};
}

text::Json maxTree(const TablePair& pair) {
    const std::uint64_t at = pair.difference.maxAt;
    const auto [column, row, channel] = placeOf(pair);
    return {{"difference", static_cast<float>(pair.difference.max)},
            {"column", column},
            {"row", row},
            {"channel", orNull(!channel.empty(), channel)},
            {"a", (*pair.sides[0])[at]},
            {"b", (*pair.sides[1])[at]}};
}

text::Json tableTree(const TablePair& pair) {
    const auto shape = [](const module::Table* of) {
        return of == nullptr ? text::Json()
                             : text::Json{{"columns", of->columns}, {"rows", of->rows}};
    };
    const auto& [elements, differing, unmeasured, mean, rms, max, maxAt] = pair.difference;
    return {{"name", pair.known().name},
            {"title", pair.known().title},
            {"a", shape(pair.sides[0])},
            {"b", shape(pair.sides[1])},
            {"differs", pair.differs()},
            {"elements", orNull(pair.comparable, elements)},
            {"differing", orNull(pair.comparable, differing)},
            {"unmeasured", orNull(pair.comparable, unmeasured)},
            {"mean", orNull(pair.comparable, static_cast<float>(mean))},
            {"rms", orNull(pair.comparable, static_cast<float>(rms))},
            {"max", max != 0.0 ? maxTree(pair) : text::Json()}};
}

text::Json toleranceTree(const std::map<std::string, double>& tolerances) {
    text::Json tree = text::Json::object();
    for (const auto& [name, value] : tolerances) {
        tree[name.empty() ? "all" : name] = static_cast<float>(value);
    }
    return tree;
}

// ----------------------------------------------------------------------------------------- text --

/// "0.01, psf 1e-07"
std::string listed(const std::map<std::string, double>& tolerances) {
    std::string text;
    for (const auto& [name, value] : tolerances) {
        text += fmt::format("{}{}{}{}", text.empty() ? "" : ", ", name, name.empty() ? "" : " ",
                            static_cast<float>(value));
    }
    return text;
}

std::string verdictOf(const Comparison& comparison) {
    const Tolerances& tolerances = comparison.tolerances;
    std::string text = comparison.equal ? "equal" : "different";
    const char* lead = comparison.equal ? ", within " : ", not within ";
    if (!tolerances.absolute.empty()) {
        text += std::exchange(lead, " and ") + listed(tolerances.absolute);
    }
    if (!tolerances.relative.empty()) {
        text += lead + listed(tolerances.relative) + " of A";
    }
    return text;
}

/// Numbers of A and B, and a difference that the eye can place: its sign, and no more digits than
/// it has a meaning with. Texts, of which there are long ones, stand below.
void writeValues(text::Lines& out, const char* heading, const char* what,
                 const std::vector<ValuePair>& pairs) {
    if (pairs.empty()) {
        return;
    }
    out.heading(heading);
    const auto isText = [](const ValuePair& pair) {
        return pair.sides[0].is_string() || pair.sides[1].is_string();
    };
    const auto shown = [](const ValuePair& pair, std::size_t side) {
        const std::string text = module::textOf(pair.sides.at(side), pair.shown);
        return text.empty() ? missing : text;
    };
    std::vector<text::Row> rows;
    for (const ValuePair& pair : pairs) {
        if (!isText(pair)) {
            rows.push_back({{pair.name, shown(pair, 0), shown(pair, 1),
                             pair.difference ? numberText(*pair.difference) : missing}});
        }
    }
    constexpr std::size_t leastName = 12;
    if (!rows.empty()) {
        out.table({{what, false, 0, leastName}, {"A", true}, {"B", true}, {"B - A", true}},
                  std::move(rows));
    }
    for (const ValuePair& pair : pairs) {
        if (isText(pair)) {
            out.item(pair.name, "A: " + shown(pair, 0));
            out.item("", "B: " + shown(pair, 1));
        }
    }
}

void writeTables(text::Lines& out, const std::vector<TablePair>& tables) {
    const auto shape = [](const module::Table* of) {
        return of == nullptr ? "missing" : fmt::format("{} x {}", of->columns, of->rows);
    };
    std::vector<text::Row> rows;
    for (const TablePair& pair : tables) {
        const module::Table& table = pair.known();
        if (!pair.comparable) {
            rows.push_back(
                {{table.title, "all"},
                 fmt::format("A: {}, B: {}", shape(pair.sides[0]), shape(pair.sides[1]))});
            continue;
        }
        const module::TableDifference& of = pair.difference;
        const auto [column, row, channel] = placeOf(pair);
        const bool any = of.max != 0.0;
        rows.push_back(
            {{table.title, fmt::format("{} of {}", of.differing, of.elements),
              any ? fmt::format("{:+.4g}", static_cast<float>(of.mean)) : "0",
              fmt::format("{:.4g}", static_cast<float>(of.rms)), any ? numberText(of.max) : "0",
              any ? fmt::format("column {}, row {}{}", column, row,
                                channel.empty() ? "" : " (" + channel + ")")
                  : ""}});
        if (of.unmeasured != 0) {
            rows.push_back({{""}, fmt::format("{} not finite on one side", of.unmeasured)});
        }
    }
    if (!rows.empty()) {
        out.heading("Tables");
        out.table({{"table"},
                   {"differing", true},
                   {"mean", true, 2},
                   {"RMS", true},
                   {"maximum", true},
                   {"maximum at", false, 1}},
                  std::move(rows));
    }
}

void writeBlocks(text::Lines& out, const std::vector<BlockPair>& blocks) {
    const auto storage = [](const vantric::BlockSighting* of) {
        return of == nullptr ? "missing"
                             : fmt::format("{} x {}{}, {} bytes", of->header.count,
                                           module::kindName(of->header.kind),
                                           vantric::isPacked(of->header.kind)
                                               ? fmt::format(", {} bits", of->header.bits)
                                               : "",
                                           of->payloadSize);
    };
    std::vector<text::Row> rows;
    for (const BlockPair& block : blocks) {
        if (block.differs) {
            rows.push_back({{fmt::to_string(block.id), module::blockName(block.id),
                             storage(block.sides[0]), storage(block.sides[1]),
                             block.both() ? fmt::to_string(block.differingBytes) : missing}});
        }
    }
    if (!rows.empty()) {
        out.heading("Blocks");
        out.table(
            {{"id", true}, {"name"}, {"A", false, 1}, {"B", false, 2}, {"differing bytes", true}},
            std::move(rows));
    }
}

}  // namespace

text::Json treeOf(const Comparison& comparison, const Pair<std::string>& paths) {
    const auto& [absolute, relative] = comparison.tolerances;
    const auto all = absolute.find("");
    text::Json tree = {
        {"schema", compareSchema},
        {"a", moduleTree(paths[0], *comparison.sides[0])},
        {"b", moduleTree(paths[1], *comparison.sides[1])},
        {"tolerance", all == absolute.end() ? text::Json() : text::Json(float(all->second))},
        {"tolerances", toleranceTree(absolute)},
        {"rtol", toleranceTree(relative)},
        {"equal", comparison.equal},
        {"blocks", text::Json::array()},
        {"lens", text::Json::object()},
        {"tables", text::Json::array()},
        {"values", text::Json::array()}};
    for (const BlockPair& block : comparison.blocks) {
        tree["blocks"].push_back(blockTree(block));
    }
    for (const ValuePair& pair : comparison.lens) {
        tree["lens"][pair.name] = valueTree(pair);
        tree["lens"][pair.name]["differs"] = pair.differs;
    }
    for (const TablePair& pair : comparison.tables) {
        tree["tables"].push_back(tableTree(pair));
    }
    for (const ValuePair& pair : comparison.values) {
        tree["values"].push_back({{"name", pair.name}});
        tree["values"].back().update(valueTree(pair));
    }
    return tree;
}

std::string textOf(const Comparison& comparison, const Pair<std::string>& paths,
                   const text::TextStyle& style) {
    text::Lines out(style);
    const auto& [sides, tolerances, tablesOf, equal, blocks, lens, tables, values, others] =
        comparison;
    out.item("verdict", verdictOf(comparison), equal ? text::Colour::Green : text::Colour::Yellow);
    for (const std::size_t side : {0U, 1U}) {
        const module::Diagnosis& about = *sides.at(side);
        out.item(side == 0 ? "A" : "B",
                 fmt::format("{} ({}, {} x {} pixels)", text::escapePath(paths.at(side)),
                             about.layout.name, about.record->imagerArea.columns,
                             about.record->imagerArea.rows));
    }
    const auto lensDiffering = std::ranges::count(lens, true, &ValuePair::differs);
    out.item("lens", fmt::format("{} of {} differ", lensDiffering, lens.size()));
    out.item("tables",
             fmt::format("{} of {} differ", std::ranges::count(tables, true, &TablePair::differs),
                         tables.size()));
    out.item("other values", fmt::format("{} of {} differ", values.size(), others));
    out.item("stored the same",
             fmt::format("{} of {} blocks", std::ranges::count(blocks, false, &BlockPair::differs),
                         blocks.size()));
    writeValues(out, "Lens", "parameter", lensDiffering == 0 ? std::vector<ValuePair>() : lens);
    writeTables(out, tables);
    writeValues(out, "Other values", "value", values);
    writeBlocks(out, blocks);
    return out.take();
}

}  // namespace calcut::compare
