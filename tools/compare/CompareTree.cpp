#include "tools/compare/CompareTree.h"

#include <algorithm>
#include <array>
#include <functional>
#include <map>
#include <numeric>
#include <utility>

#include "tools/module/Layout.h"
#include "tools/module/Names.h"
#include "tools/module/Tables.h"
#include "tools/module/Tree.h"

namespace calcut::compare {

namespace {

// --------------------------------------------------------------------------------------- blocks --

/// A calibration that reads may still repeat ids that it does not know: the number tells them
/// apart.
using BlockKey = std::pair<std::uint32_t, unsigned>;

/// A block of A and of B, null where there is none.
using BlockPair = std::array<const vantric::BlockSighting*, 2>;

std::map<BlockKey, BlockPair> blockPairs(const module::Diagnosis& a, const module::Diagnosis& b) {
    std::map<BlockKey, BlockPair> pairs;
    for (const std::size_t side : {0U, 1U}) {
        std::map<std::uint32_t, unsigned> met;
        for (const vantric::BlockSighting& block : (side == 0 ? a : b).blocks) {
            pairs[{block.header.id, met[block.header.id]++}].at(side) = &block;
        }
    }
    return pairs;
}

files::ByteView payloadOf(const module::Diagnosis& about, const vantric::BlockSighting& block) {
    return about.file.subspan(block.payloadOffset, block.payloadSize);
}

/// How a block is stored; null where there is none.
text::Json sightingTree(const vantric::BlockSighting* block) {
    if (block == nullptr) {
        return nullptr;
    }
    text::Json tree = module::storageTree(block->header);
    tree["payloadBytes"] = block->payloadSize;
    return tree;
}

/// Bytes that are not the same, counting those that only the longer one has.
std::uint64_t differingBytes(files::ByteView a, files::ByteView b) {
    const auto [common, size] = std::minmax({a.size(), b.size()});
    return std::transform_reduce(a.begin(), a.begin() + static_cast<std::ptrdiff_t>(common),
                                 b.begin(), std::uint64_t{size - common}, std::plus<>(),
                                 std::not_equal_to<>());
}

/// Whether the bytes of a block are all that is known about it.
bool isOpaque(const vantric::BlockSighting& block) {
    return block.outcome != vantric::BlockOutcome::read || block.header.id >= RX_BLOCK_FIRST_CUSTOM;
}

text::Json blocksTree(const module::Diagnosis& a, const module::Diagnosis& b, bool byValue,
                      bool& equal) {
    text::Json list = text::Json::array();
    for (const auto& [key, pair] : blockPairs(a, b)) {
        const auto [one, other] = pair;
        const bool both = one != nullptr && other != nullptr;
        const text::Json ofA = sightingTree(one);
        const text::Json ofB = sightingTree(other);
        const std::uint64_t bytes =
            both ? differingBytes(payloadOf(a, *one), payloadOf(b, *other)) : 0;
        const bool different = !both || bytes != 0 || ofA != ofB;
        list.push_back({{"id", key.first},
                        {"name", module::blockName(key.first)},
                        {"a", ofA},
                        {"b", ofB},
                        {"differingBytes", module::orNull(both, bytes)},
                        {"differs", different}});
        equal = equal && !(different && (!both || !byValue || isOpaque(*one)));
    }
    return list;
}

// --------------------------------------------------------------------------------------- values --

/// A pair of values from the trees of two records. Integers, texts and what is missing must be
/// equal.
text::Json valueTree(const text::Json& a, const text::Json& b, double tolerance) {
    const bool numbers = a.is_number() && b.is_number();
    const double difference = numbers ? b.get<double>() - a.get<double>() : 0.0;
    const bool differ = a.is_number_float() && b.is_number_float()
                            ? module::differs(a.get<float>(), b.get<float>(), tolerance)
                            : a != b;
    return {{"a", a},
            {"b", b},
            {"difference", module::orNull(numbers, static_cast<float>(difference))},
            {"differs", differ}};
}

/// All values that A or B have, by their names.
text::Json pairsTree(const text::Json& a, const text::Json& b, double tolerance, bool& equal) {
    text::Json pairs = a;
    pairs.update(b);
    for (auto& [name, pair] : pairs.items()) {
        pair = valueTree(a.value(name, text::Json(nullptr)), b.value(name, text::Json(nullptr)),
                         tolerance);
        equal = equal && !pair["differs"];
    }
    return pairs;
}

/// All single values of a record by their path. What lenses and tables say already is left out, and
/// frequencies go by their place in the format.
text::Json flatRecord(text::Json record) {
    for (const char* key : {"lens", "maskedPixels", "zeroMaskCount", "customStatus"}) {
        record.erase(key);
    }
    text::Json frequencies = text::Json::object();
    for (text::Json& frequency : record["frequencies"]) {
        const std::string place = text::jsonText(frequency["index"]);
        frequency.erase("index");
        frequencies[place] = std::move(frequency);
    }
    text::Json custom = text::Json::object();
    for (const text::Json& field : record["custom"]) {
        custom[text::jsonText(field["id"])] = field["hex"];
    }
    record["frequencies"] = std::move(frequencies);
    record["custom"] = std::move(custom);
    return record.flatten();
}

/// The values that differ.
text::Json valuesTree(const text::Json& recordA, const text::Json& recordB, double tolerance,
                      bool& equal) {
    text::Json list = text::Json::array();
    const text::Json pairs = pairsTree(flatRecord(recordA), flatRecord(recordB), tolerance, equal);
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

text::Json shapeTree(const module::Table* table) {
    return table == nullptr ? text::Json(nullptr)
                            : text::Json{{"columns", table->columns}, {"rows", table->rows}};
}

text::Json maxTree(const module::TableDifference& difference, const module::Table& a,
                   const module::Table& b) {
    const std::uint64_t at = difference.maxAt;
    const std::uint64_t element = at / a.channels;
    const std::string channel = module::channelName(a, static_cast<unsigned>(at % a.channels));
    return {{"difference", static_cast<float>(difference.max)},
            {"column", element % a.columns},
            {"row", element / a.columns},
            {"channel", module::orNull(!channel.empty(), channel)},
            {"a", a[at]},
            {"b", b[at]}};
}

text::Json tableTree(const module::Table* a, const module::Table* b, double tolerance) {
    const module::Table& known = a == nullptr ? *b : *a;
    const bool comparable = a != nullptr && b != nullptr && module::sameShape(*a, *b);
    const module::TableDifference difference =
        comparable ? module::differenceOf(*a, *b, tolerance) : module::TableDifference{};
    return {{"name", known.name},
            {"title", known.title},
            {"a", shapeTree(a)},
            {"b", shapeTree(b)},
            {"differs", !comparable || difference.differing != 0},
            {"elements", module::orNull(comparable, difference.elements)},
            {"differing", module::orNull(comparable, difference.differing)},
            {"unmeasured", module::orNull(comparable, difference.unmeasured)},
            {"rms", module::orNull(comparable, static_cast<float>(difference.rms))},
            {"max", difference.max != 0.0 ? maxTree(difference, *a, *b) : text::Json(nullptr)}};
}

text::Json tablesTree(const module::Diagnosis& a, const module::Diagnosis& b, double tolerance,
                      bool& equal) {
    const std::vector<module::Table> ofA = module::tablesOf(a);
    const std::vector<module::Table> ofB = module::tablesOf(b);
    text::Json list = text::Json::array();
    for (const module::Table& table : ofA) {
        list.push_back(tableTree(&table, module::tableNamed(ofB, table.name), tolerance));
    }
    for (const module::Table& table : ofB) {
        if (module::tableNamed(ofA, table.name) == nullptr) {
            list.push_back(tableTree(nullptr, &table, tolerance));
        }
    }
    for (const text::Json& table : list) {
        equal = equal && !table["differs"];
    }
    return list;
}

text::Json moduleTree(const NamedModule& module) {
    const VantricImagerArea& area = module.diagnosis.record->imagerArea;
    return {{"file", module.path},
            {"layout", module.diagnosis.layout.name},
            {"columns", area.columns},
            {"rows", area.rows}};
}

}  // namespace

text::Json compareTree(const NamedModule& a, const NamedModule& b,
                       std::optional<double> tolerance) {
    const double allowed = tolerance.value_or(0.0);
    const text::Json recordA = module::recordTree(a.diagnosis);
    const text::Json recordB = module::recordTree(b.diagnosis);
    const bool lenses = !recordA["lens"].is_null() && !recordB["lens"].is_null();
    bool equal = lenses || recordA["lens"] == recordB["lens"];
    const text::Json lens =
        lenses ? pairsTree(recordA["lens"], recordB["lens"], allowed, equal) : text::Json(nullptr);
    text::Json tree = {
        {"schema", compareSchema},
        {"a", moduleTree(a)},
        {"b", moduleTree(b)},
        {"tolerance", module::orNull(tolerance.has_value(), static_cast<float>(allowed))},
        {"equal", false},
        {"blocks", blocksTree(a.diagnosis, b.diagnosis, tolerance.has_value(), equal)},
        {"lens", lens},
        {"tables", tablesTree(a.diagnosis, b.diagnosis, allowed, equal)},
        {"values", valuesTree(recordA, recordB, allowed, equal)}};
    tree["equal"] = equal;
    return tree;
}

}  // namespace calcut::compare
