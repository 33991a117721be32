#include "tools/compare/CompareTree.h"

#include <algorithm>
#include <map>
#include <utility>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "calibration/packed/Block.h"
#include "tools/dump/Names.h"
#include "tools/dump/Tables.h"

namespace calcut::tools {

namespace {

// --------------------------------------------------------------------------------------- blocks --

/// A calibration that reads may still repeat ids that it does not know: the number tells them
/// apart.
using BlockKey = std::pair<std::uint32_t, unsigned>;

std::map<BlockKey, const vantric::BlockSighting*> blocksOf(const Diagnosis& about) {
    std::map<BlockKey, const vantric::BlockSighting*> blocks;
    std::map<std::uint32_t, unsigned> met;
    for (const vantric::BlockSighting& block : about.blocks) {
        const std::uint32_t id = block.header.id;
        blocks.emplace(BlockKey{id, met[id]++}, &block);
    }
    return blocks;
}

ByteView payloadOf(const Diagnosis& about, const vantric::BlockSighting& block) {
    return about.file.subspan(block.payloadOffset, block.payloadSize);
}

/// How a block is stored; null where there is none.
Json storageTree(const vantric::BlockSighting* block) {
    if (block == nullptr) {
        return nullptr;
    }
    const RXBlockHeader& header = block->header;
    const bool fixedPoint = header.kind == RX_KIND_PACKED_FLOAT;
    Json tree;
    tree["kind"] = kindName(header.kind);
    tree["count"] = header.count;
    tree["bits"] = vantric::isPacked(header.kind) ? Json(header.bits) : Json(nullptr);
    tree["scale"] = fixedPoint ? jsonFloat(header.scale) : Json(nullptr);
    tree["valueOffset"] = fixedPoint ? jsonFloat(header.offset) : Json(nullptr);
    tree["payloadBytes"] = block->payloadSize;
    return tree;
}

/// Bytes that are not the same, counting those that only the longer one has.
std::uint64_t differingBytes(ByteView a, ByteView b) {
    const std::size_t common = std::min(a.size(), b.size());
    std::uint64_t count = std::max(a.size(), b.size()) - common;
    for (std::size_t i = 0; i < common; ++i) {
        count += a[i] != b[i] ? 1 : 0;
    }
    return count;
}

/// Whether the bytes of a block are all that is known about it.
bool isOpaque(const vantric::BlockSighting& block) {
    return block.outcome != vantric::BlockOutcome::read || block.header.id >= RX_BLOCK_FIRST_CUSTOM;
}

Json blocksTree(const Diagnosis& a, const Diagnosis& b, bool byValue, bool& equal) {
    const auto ofA = blocksOf(a);
    const auto ofB = blocksOf(b);
    std::map<BlockKey, std::pair<const vantric::BlockSighting*, const vantric::BlockSighting*>> all;
    for (const auto& [key, block] : ofA) {
        all[key].first = block;
    }
    for (const auto& [key, block] : ofB) {
        all[key].second = block;
    }
    Json list = Json::array();
    for (const auto& [key, pair] : all) {
        const auto& [one, other] = pair;
        Json& entry = list.emplace_back();
        entry["id"] = key.first;
        entry["name"] = blockName(key.first);
        entry["a"] = storageTree(one);
        entry["b"] = storageTree(other);
        entry["differingBytes"] = nullptr;
        bool different = true;
        if (one != nullptr && other != nullptr) {
            const std::uint64_t bytes = differingBytes(payloadOf(a, *one), payloadOf(b, *other));
            entry["differingBytes"] = bytes;
            different = bytes != 0 || entry["a"] != entry["b"];
        }
        entry["differs"] = different;
        const bool counts = one == nullptr || other == nullptr || !byValue || isOpaque(*one);
        equal = equal && !(different && counts);
    }
    return list;
}

// --------------------------------------------------------------------------------------- values --

/// A pair of values from the trees of two records. Integers, texts and what is missing must be
/// equal.
Json valueTree(const Json& a, const Json& b, double tolerance) {
    Json tree;
    tree["a"] = a;
    tree["b"] = b;
    const bool numbers = a.is_number() && b.is_number();
    tree["difference"] =
        numbers ? Json(static_cast<float>(b.get<double>() - a.get<double>())) : Json(nullptr);
    tree["differs"] = a.is_number_float() && b.is_number_float()
                          ? tools::differs(a.get<float>(), b.get<float>(), tolerance)
                          : a != b;
    return tree;
}

Json lensTree(const Json& a, const Json& b, double tolerance, bool& equal) {
    if (a.is_null() || b.is_null()) {
        equal = equal && a == b;
        return nullptr;
    }
    Json tree;
    for (const auto& [name, value] : a.items()) {
        tree[name] = valueTree(value, b[name], tolerance);
        equal = equal && !tree[name]["differs"].get<bool>();
    }
    return tree;
}

/// All single values of a record by their path. What lenses and tables say already is left out, and
/// frequencies go by their place in the format.
Json flatRecord(Json record) {
    for (const char* key : {"lens", "maskedPixels", "zeroMaskCount", "customStatus"}) {
        record.erase(key);
    }
    Json frequencies = Json::object();
    for (Json& frequency : record["frequencies"]) {
        const std::string place = fmt::format("{}", frequency["index"].get<unsigned>());
        frequency.erase("index");
        frequencies[place] = std::move(frequency);
    }
    Json custom = Json::object();
    for (const Json& field : record["custom"]) {
        custom[fmt::format("{}", field["id"].get<unsigned>())] = field["hex"];
    }
    record["frequencies"] = std::move(frequencies);
    record["custom"] = std::move(custom);
    return record.flatten();
}

/// The values that differ.
Json valuesTree(const Json& recordA, const Json& recordB, double tolerance, bool& equal) {
    const Json a = flatRecord(recordA);
    const Json b = flatRecord(recordB);
    Json list = Json::array();
    const auto add = [&](const std::string& path, const Json& one, const Json& other) {
        Json entry = valueTree(one, other, tolerance);
        if (entry["differs"].get<bool>()) {
            equal = false;
            entry.erase("differs");
            std::string name = path.substr(1);
            std::replace(name.begin(), name.end(), '/', '.');
            list.push_back({{"name", std::move(name)}});
            list.back().update(entry);
        }
    };
    for (const auto& [path, value] : a.items()) {
        add(path, value, b.value(path, Json(nullptr)));
    }
    for (const auto& [path, value] : b.items()) {
        if (!a.contains(path)) {
            add(path, nullptr, value);
        }
    }
    return list;
}

// --------------------------------------------------------------------------------------- tables --

Json shapeTree(const Table* table) {
    return table == nullptr ? Json(nullptr)
                            : Json{{"columns", table->columns}, {"rows", table->rows}};
}

Json maxTree(const TableDifference& difference, const Table& a, const Table& b) {
    const std::uint64_t at = difference.maxAt;
    const std::uint64_t element = at / a.channels;
    const char* channel = channelName(a, static_cast<unsigned>(at % a.channels));
    Json tree;
    tree["difference"] = static_cast<float>(difference.max);
    tree["column"] = element % a.columns;
    tree["row"] = element / a.columns;
    tree["channel"] = *channel == '\0' ? Json(nullptr) : Json(channel);
    tree["a"] = a[at];
    tree["b"] = b[at];
    return tree;
}

Json tableTree(const Table* a, const Table* b, double tolerance) {
    Json tree;
    const Table& known = a == nullptr ? *b : *a;
    tree["name"] = known.name;
    tree["title"] = known.title;
    tree["a"] = shapeTree(a);
    tree["b"] = shapeTree(b);
    tree["differs"] = true;
    for (const char* key : {"elements", "differing", "unmeasured", "rms", "max"}) {
        tree[key] = nullptr;
    }
    if (a != nullptr && b != nullptr && sameShape(*a, *b)) {
        const TableDifference difference = differenceOf(*a, *b, tolerance);
        tree["differs"] = difference.differing != 0;
        tree["elements"] = difference.elements;
        tree["differing"] = difference.differing;
        tree["unmeasured"] = difference.unmeasured;
        tree["rms"] = static_cast<float>(difference.rms);
        if (difference.max != 0.0) {
            tree["max"] = maxTree(difference, *a, *b);
        }
    }
    return tree;
}

Json tablesTree(const Diagnosis& a, const Diagnosis& b, double tolerance, bool& equal) {
    const std::vector<Table> ofA = tablesOf(a);
    const std::vector<Table> ofB = tablesOf(b);
    Json list = Json::array();
    const auto add = [&](const Table* one, const Table* other) {
        list.push_back(tableTree(one, other, tolerance));
        equal = equal && !list.back()["differs"].get<bool>();
    };
    for (const Table& table : ofA) {
        add(&table, tableNamed(ofB, table.name));
    }
    for (const Table& table : ofB) {
        if (tableNamed(ofA, table.name) == nullptr) {
            add(nullptr, &table);
        }
    }
    return list;
}

Json moduleTree(const NamedModule& module) {
    const VantricImagerArea& area = module.diagnosis.record->imagerArea;
    return {{"file", module.path},
            {"layout", layoutName(module.diagnosis.layout)},
            {"columns", area.columns},
            {"rows", area.rows}};
}

}  // namespace

Json compareTree(const NamedModule& a, const NamedModule& b, std::optional<double> tolerance) {
    const double allowed = tolerance.value_or(0.0);
    const Json recordA = recordTree(a.diagnosis);
    const Json recordB = recordTree(b.diagnosis);
    bool equal = true;
    Json tree;
    tree["schema"] = compareSchema;
    tree["a"] = moduleTree(a);
    tree["b"] = moduleTree(b);
    tree["tolerance"] = tolerance ? Json(static_cast<float>(*tolerance)) : Json(nullptr);
    tree["equal"] = false;
    tree["blocks"] = blocksTree(a.diagnosis, b.diagnosis, tolerance.has_value(), equal);
    tree["lens"] = lensTree(recordA["lens"], recordB["lens"], allowed, equal);
    tree["tables"] = tablesTree(a.diagnosis, b.diagnosis, allowed, equal);
    tree["values"] = valuesTree(recordA, recordB, allowed, equal);
    tree["equal"] = equal;
    return tree;
}

}  // namespace calcut::tools
