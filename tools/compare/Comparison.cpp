#include "tools/compare/Comparison.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <numeric>
#include <utility>

#include <fmt/format.h>

#include "calibration/packed/Block.h"
#include "tools/text/Escape.h"

namespace calcut::compare {

namespace {

using module::Diagnosis;

// --------------------------------------------------------------------------------------- blocks --

/// Bytes that are not the same, counting those that only the longer one has.
std::uint64_t differingBytes(files::ByteView a, files::ByteView b) {
    const auto [common, size] = std::minmax({a.size(), b.size()});
    return std::transform_reduce(a.begin(), a.begin() + static_cast<std::ptrdiff_t>(common),
                                 b.begin(), std::uint64_t{size - common}, std::plus<>(),
                                 std::not_equal_to<>());
}

/// Only the packed kinds have bits, and only packed floats fixed point.
bool storedAlike(const RXBlockHeader& a, const RXBlockHeader& b) {
    return a.kind == b.kind && a.count == b.count &&
           (!vantric::isPacked(a.kind) || a.bits == b.bits) &&
           (a.kind != RX_KIND_PACKED_FLOAT ||
            (!module::differs(a.scale, b.scale) && !module::differs(a.offset, b.offset)));
}

std::vector<BlockPair> blocksOf(const Diagnosis& a, const Diagnosis& b) {
    // A calibration that reads may still repeat ids that it does not know: the number tells them
    // apart.
    std::map<std::pair<std::uint32_t, unsigned>, BlockPair> pairs;
    for (const std::size_t side : {0U, 1U}) {
        std::map<std::uint32_t, unsigned> met;
        for (const vantric::BlockSighting& block : (side == 0 ? a : b).blocks) {
            const std::uint32_t id = block.header.id;
            BlockPair& pair = pairs[{id, met[id]++}];
            pair.id = id;
            pair.sides.at(side) = &block;
        }
    }
    const auto payload = [](const Diagnosis& of, const vantric::BlockSighting& block) {
        return of.file.subspan(block.payloadOffset, block.payloadSize);
    };
    std::vector<BlockPair> list;
    for (auto& [key, pair] : pairs) {
        const auto [one, other] = pair.sides;
        pair.differingBytes =
            pair.both() ? differingBytes(payload(a, *one), payload(b, *other)) : 0;
        pair.differs = !pair.both() || pair.differingBytes != 0 ||
                       one->payloadSize != other->payloadSize ||
                       !storedAlike(one->header, other->header);
        list.push_back(pair);
    }
    return list;
}

/// Whether the bytes of a block are all that is known about it.
bool isOpaque(const vantric::BlockSighting& block) {
    return block.outcome != vantric::BlockOutcome::read || block.header.id >= RX_BLOCK_FIRST_CUSTOM;
}

// --------------------------------------------------------------------------------------- values --

std::optional<double> numberOf(const module::Value& value) {
    if (const auto* number = std::get_if<float>(&value)) {
        return *number;
    }
    if (const auto* bits = std::get_if<module::FloatBits>(&value)) {
        return bits->bits;
    }
    const auto* whole = std::get_if<std::int64_t>(&value);
    return whole == nullptr ? std::nullopt : std::optional(static_cast<double>(*whole));
}

/// Integers, texts and what is missing must be equal.
void judge(ValuePair& pair, const module::Tolerance& tolerance) {
    const auto& [a, b] = pair.sides;
    const auto numbers = std::pair(numberOf(a), numberOf(b));
    if (numbers.first && numbers.second) {
        const double difference = *numbers.second - *numbers.first;
        pair.difference = std::isfinite(difference) ? std::optional(difference) : std::nullopt;
    }
    const auto *one = std::get_if<float>(&a), *other = std::get_if<float>(&b);
    pair.differs = one != nullptr && other != nullptr
                       ? module::differs(*one, *other, tolerance)
                       : a.index() != b.index() || textOf(a) != textOf(b);
}

using NamedValue = std::pair<std::string, module::Value>;

void addValues(std::vector<NamedValue>& to, std::span<const module::Field> fields,
               const Diagnosis& about, bool ofLens, std::optional<unsigned> frequency = {}) {
    for (const module::Field& field : fields) {
        // What tables say already is left out.
        const bool isLens = field.block == RX_BLOCK_LENS_PARAMETERS && !frequency;
        const bool isMask = field.block == RX_BLOCK_MASK && !frequency;
        if (*field.key == '\0' || isLens != ofLens || isMask) {
            continue;
        }
        const std::string place = frequency ? fmt::format("frequencies.{}.", *frequency) : "";
        const std::string group =
            ofLens || *field.group == '\0' ? "" : std::string(field.group) + ".";
        const std::string name = place + group + field.key;
        const module::Value value = valueOf(field, about, frequency);
        const std::vector<module::Value> elements = elementsOf(value);
        for (std::size_t i = 0; i < elements.size(); ++i) {
            to.emplace_back(isList(value) ? fmt::format("{}.{}", name, i) : name, elements[i]);
        }
    }
}

std::vector<NamedValue> lensOf(const Diagnosis& about) {
    std::vector<NamedValue> values;
    addValues(values, module::recordFields, about, true);
    return values;
}

/// All other single values of a record by their path; frequencies go by their place in the format.
std::vector<NamedValue> othersOf(const Diagnosis& about) {
    std::vector<NamedValue> values;
    addValues(values, module::recordFields, about, false);
    for (const unsigned k : module::frequenciesOf(about)) {
        addValues(values, module::frequencyFields, about, false, k);
    }
    addValues(values, module::straylightFields, about, false);
    for (const module::Table& custom : module::customTablesOf(about)) {
        values.emplace_back("custom." + custom.name.substr(custom.name.find('_') + 1),
                            files::ByteView(custom.bytes));
    }
    return values;
}

std::vector<ValuePair> valuesOf(const std::vector<NamedValue>& a, const std::vector<NamedValue>& b,
                                const module::Tolerance& tolerance) {
    std::vector<ValuePair> pairs;
    std::map<std::string, std::size_t> places;
    for (const std::size_t side : {0U, 1U}) {
        for (const auto& [name, value] : side == 0 ? a : b) {
            const auto [place, isNew] = places.try_emplace(name, pairs.size());
            if (isNew) {
                pairs.push_back({name});
            }
            pairs[place->second].sides.at(side) = value;
        }
    }
    for (ValuePair& pair : pairs) {
        judge(pair, tolerance);
    }
    return pairs;
}

// --------------------------------------------------------------------------------------- tables --

std::vector<TablePair> pairsOf(const Pair<std::vector<module::Table>>& of,
                               const Tolerances& tolerances) {
    std::vector<TablePair> pairs;
    for (const module::Table& table : of[0]) {
        pairs.push_back({{&table, module::tableNamed(of[1], table.name)}});
    }
    for (const module::Table& table : of[1]) {
        if (module::tableNamed(of[0], table.name) == nullptr) {
            pairs.push_back({{nullptr, &table}});
        }
    }
    for (TablePair& pair : pairs) {
        const auto [a, b] = pair.sides;
        pair.comparable = a != nullptr && b != nullptr && module::sameShape(*a, *b);
        if (pair.comparable) {
            pair.difference = module::differenceOf(*a, *b, tolerances.of(a->name));
        }
    }
    return pairs;
}

}  // namespace

module::Tolerance Tolerances::of(const std::string& name) const {
    const auto in = [&name](const std::map<std::string, double>& given) {
        const auto own = given.find(name);
        const auto found = own != given.end() ? own : given.find("");
        return found != given.end() ? found->second : 0.0;
    };
    return {in(absolute), in(relative)};
}

std::optional<std::string> addTolerance(std::map<std::string, double>& to,
                                        const std::string& text) {
    std::vector<std::string> names = {"lens", "values", "pixel_values", "rays", "psf"};
    for (unsigned k = 0; k < VANTRIC_FREQUENCIES; ++k) {
        names.push_back(module::pixelTableName(k));
    }
    const std::size_t sign = text.find('=');
    const std::string name = sign == std::string::npos ? "" : text.substr(0, sign);
    if (sign != std::string::npos && std::ranges::find(names, name) == names.end()) {
        return fmt::format("{} takes no tolerance; these do: {}", text::escapePath(name),
                           fmt::join(names, ", "));
    }
    const char* const begin = text.data() + (sign == std::string::npos ? 0 : sign + 1);
    const char* const end = text.data() + text.size();
    double value = 0.0;
    const auto [stop, error] = std::from_chars(begin, end, value);
    if (error != std::errc() || stop != end || !std::isfinite(value) || value < 0.0) {
        return "give a number from 0 on, not " + text::escapePath({begin, end});
    }
    to[name] = value;
    return std::nullopt;
}

Comparison::Comparison(const Diagnosis& a, const Diagnosis& b, const Tolerances& tolerances)
    : sides{&a, &b},
      tablesOf{module::tablesOf(a), module::tablesOf(b)},
      blocks(blocksOf(a, b)),
      lens(valuesOf(lensOf(a), lensOf(b), tolerances.of("lens"))),
      tables(pairsOf(tablesOf, tolerances)),
      values(valuesOf(othersOf(a), othersOf(b), tolerances.of("values"))) {
    const auto counts = [&tolerances](const BlockPair& block) {
        return block.differs && !(block.both() && tolerances.given() && !isOpaque(*block.sides[0]));
    };
    others = values.size();
    std::erase_if(values, [](const ValuePair& pair) { return !pair.differs; });
    equal = std::ranges::none_of(blocks, counts) &&
            std::ranges::none_of(lens, &ValuePair::differs) &&
            std::ranges::none_of(tables, &TablePair::differs) && values.empty();
}

}  // namespace calcut::compare
