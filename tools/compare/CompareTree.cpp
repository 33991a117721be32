#include "tools/compare/CompareTree.h"

#include <algorithm>
#include <array>
#include <functional>
#include <map>
#include <numeric>
#include <utility>

#include "tools/dump/Names.h"
#include "tools/dump/Tables.h"

namespace calcut::tools {

namespace {

// --------------------------------------------------------------------------------------- blocks --

/// A calibration that reads may still repeat ids that it does not know: the number tells them
/// apart.
using BlockKey = std::pair<std::uint32_t, unsigned>;

/// A block of A and of B, null where there is none.
using BlockPair = std::array<const vantric::BlockSighting*, 2>;

std::map<BlockKey, BlockPair> blockPairs(const Diagnosis& a, const Diagnosis& b) {
    std::map<BlockKey, BlockPair> pairs;
    for (const std::size_t side : {0U, 1U}) {
        std::map<std::uint32_t, unsigned> met;
        for (const vantric::BlockSighting& block : (side == 0 ? a : b).blocks) {
            pairs[{block.header.id, met[block.header.id]++}].at(side) = &block;
        }
    }
    return pairs;
}

ByteView payloadOf(const Diagnosis& about, const vantric::BlockSighting& block) {
    return about.file.subspan(block.payloadOffset, block.payloadSize);
}

/// How a block is stored; null where there is none.
Json storageTree(const vantric::BlockSighting* block) {
    if (block == nullptr) {
        return nullptr;
    }
    Json tree = tools::storageTree(block->header);
    tree["payloadBytes"] = block->payloadSize;
    return tree;
}

/// Bytes that are not the same, counting those that only the longer one has.
std::uint64_t differingBytes(ByteView a, ByteView b) {
    const auto [common, size] = std::minmax({a.size(), b.size()});
    return std::transform_reduce(a.begin(), a.begin() + static_cast<std::ptrdiff_t>(common),
                                 b.begin(), std::uint64_t{size - common}, std::plus<>(),
                                 std::not_equal_to<>());
}

/// Whether the bytes of a block are all that is known about it.
bool isOpaque(const vantric::BlockSighting& block) {
    return block.outcome != vantric::BlockOutcome::read || block.header.id >= RX_BLOCK_FIRST_CUSTOM;
}

Json blocksTree(const Diagnosis& a, const Diagnosis& b, bool byValue, bool& equal) {
    Json list = Json::array();
    for (const auto& [key, pair] : blockPairs(a, b)) {
        const auto [one, other] = pair;
        const bool both = one != nullptr && other != nullptr;
        const Json ofA = storageTree(one);
        const Json ofB = storageTree(other);
        const std::uint64_t bytes =
            both ? differingBytes(payloadOf(a, *one), payloadOf(b, *other)) : 0;
        const bool different = !both || bytes != 0 || ofA != ofB;
        list.push_back({{"id", key.first},
                        {"name", blockName(key.first)},
                        {"a", ofA},
                        {"b", ofB},
                        {"differingBytes", orNull(both, bytes)},
                        {"differs", different}});
        equal = equal && !(different && (!both || !byValue || isOpaque(*one)));
    }
    return list;
}

// --------------------------------------------------------------------------------------- values --

/// A pair of values from the trees of two records. Integers, texts and what is missing must be
/// equal.
Json valueTree(const Json& a, const Json& b, double tolerance) {
    const bool numbers = a.is_number() && b.is_number();
    const double difference = numbers ? b.get<double>() - a.get<double>() : 0.0;
    const bool differ = a.is_number_float() && b.is_number_float()
                            ? differs(a.get<float>(), b.get<float>(), tolerance)
                            : a != b;
    return {{"a", a},
            {"b", b},
            {"difference", orNull(numbers, static_cast<float>(difference))},
            {"differs", differ}};
}

/// All values that A or B have, by their names.
Json pairsTree(const Json& a, const Json& b, double tolerance, bool& equal) {
    Json pairs = a;
    pairs.update(b);
    for (auto& [name, pair] : pairs.items()) {
        pair = valueTree(a.value(name, Json(nullptr)), b.value(name, Json(nullptr)), tolerance);
        equal = equal && !pair["differs"];
    }
    return pairs;
}

/// All single values of a record by their path. What lenses and tables say already is left out, and
/// frequencies go by their place in the format.
Json flatRecord(Json record) {
    for (const char* key : {"lens", "maskedPixels", "zeroMaskCount", "customStatus"}) {
        record.erase(key);
    }
    Json frequencies = Json::object();
    for (Json& frequency : record["frequencies"]) {
        const std::string place = jsonText(frequency["index"]);
        frequency.erase("index");
        frequencies[place] = std::move(frequency);
    }
    Json custom = Json::object();
    for (const Json& field : record["custom"]) {
        custom[jsonText(field["id"])] = field["hex"];
    }
    record["frequencies"] = std::move(frequencies);
    record["custom"] = std::move(custom);
    return record.flatten();
}

/// The values that differ.
Json valuesTree(const Json& recordA, const Json& recordB, double tolerance, bool& equal) {
    Json list = Json::array();
    const Json pairs = pairsTree(flatRecord(recordA), flatRecord(recordB), tolerance, equal);
    for (const auto& [path, pair] : pairs.items()) {
        if (pair["differs"]) {
            std::string name = path.substr(1);
            std::replace(name.begin(), name.end(), '/', '.');
            list.push_back({{"name", name}});
            list.back().update(pair);
            list.back().erase("differs");
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
    const std::string channel = channelName(a, static_cast<unsigned>(at % a.channels));
    return {{"difference", static_cast<float>(difference.max)},
            {"column", element % a.columns},
            {"row", element / a.columns},
            {"channel", orNull(!channel.empty(), channel)},
            {"a", a[at]},
            {"b", b[at]}};
}

Json tableTree(const Table* a, const Table* b, double tolerance) {
    const Table& known = a == nullptr ? *b : *a;
    const bool comparable = a != nullptr && b != nullptr && sameShape(*a, *b);
    const TableDifference difference =
        comparable ? differenceOf(*a, *b, tolerance) : TableDifference{};
    return {{"name", known.name},
            {"title", known.title},
            {"a", shapeTree(a)},
            {"b", shapeTree(b)},
            {"differs", !comparable || difference.differing != 0},
            {"elements", orNull(comparable, difference.elements)},
            {"differing", orNull(comparable, difference.differing)},
            {"unmeasured", orNull(comparable, difference.unmeasured)},
            {"rms", orNull(comparable, static_cast<float>(difference.rms))},
            {"max", difference.max != 0.0 ? maxTree(difference, *a, *b) : Json(nullptr)}};
}

Json tablesTree(const Diagnosis& a, const Diagnosis& b, double tolerance, bool& equal) {
    const std::vector<Table> ofA = tablesOf(a);
    const std::vector<Table> ofB = tablesOf(b);
    Json list = Json::array();
    for (const Table& table : ofA) {
        list.push_back(tableTree(&table, tableNamed(ofB, table.name), tolerance));
    }
    for (const Table& table : ofB) {
        if (tableNamed(ofA, table.name) == nullptr) {
            list.push_back(tableTree(nullptr, &table, tolerance));
        }
    }
    for (const Json& table : list) {
        equal = equal && !table["differs"];
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
    const bool lenses = !recordA["lens"].is_null() && !recordB["lens"].is_null();
    bool equal = lenses || recordA["lens"] == recordB["lens"];
    const Json lens =
        lenses ? pairsTree(recordA["lens"], recordB["lens"], allowed, equal) : Json(nullptr);
    Json tree = {{"schema", compareSchema},
                 {"a", moduleTree(a)},
                 {"b", moduleTree(b)},
                 {"tolerance", orNull(tolerance.has_value(), static_cast<float>(allowed))},
                 {"equal", false},
                 {"blocks", blocksTree(a.diagnosis, b.diagnosis, tolerance.has_value(), equal)},
                 {"lens", lens},
                 {"tables", tablesTree(a.diagnosis, b.diagnosis, allowed, equal)},
                 {"values", valuesTree(recordA, recordB, allowed, equal)}};
    tree["equal"] = equal;
    return tree;
}

}  // namespace calcut::tools
