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

/// Adds each single value of A and B. Integers, texts and what is missing must be equal.
void addPairs(std::vector<ValuePair>& to, const std::string& name, const Pair<text::Json>& sides,
              module::Shown shown, const module::Tolerance& tolerance) {
    const auto& [a, b] = sides;
    if (a.is_array() || b.is_array()) {
        const auto at = [](const text::Json& list, std::size_t i) {
            return list.is_array() && i < list.size() ? list[i] : text::Json();
        };
        for (std::size_t i = 0; i < std::max(a.size(), b.size()); ++i) {
            addPairs(to, fmt::format("{}.{}", name, i), {at(a, i), at(b, i)}, module::Shown::plain,
                     tolerance);
        }
        return;
    }
    ValuePair& pair = to.emplace_back(ValuePair{name, sides, shown});
    if (a.is_number() && b.is_number()) {
        const double difference = b.get<double>() - a.get<double>();
        pair.difference = std::isfinite(difference) ? std::optional(difference) : std::nullopt;
    }
    pair.differs = a.is_number_float() && b.is_number_float()
                       ? module::differs(a.get<float>(), b.get<float>(), tolerance)
                       : a != b;
}

/// The lens, or all other single values of both records by their path, but for what tables say
/// already; frequencies go by their place in the format.
std::vector<ValuePair> valuesOf(const Pair<const Diagnosis*>& sides, const std::string& kind,
                                const Tolerances& tolerances) {
    const bool ofLens = kind == "lens";
    const module::Tolerance tolerance = tolerances.of(kind);
    std::vector<ValuePair> pairs;
    const auto add = [&](std::span<const module::Field> fields, const std::string& place = "",
                         std::optional<unsigned> frequency = {}) {
        for (const module::Field& field : fields) {
            const bool isLens = field.block == RX_BLOCK_LENS_PARAMETERS && !frequency;
            const bool isMask = field.block == RX_BLOCK_MASK && !frequency;
            if (*field.key != '\0' && isLens == ofLens && !isMask) {
                const char* const dot = ofLens || *field.group == '\0' ? "" : ".";
                addPairs(
                    pairs,
                    fmt::format("{}{}{}{}", place, *dot == '\0' ? "" : field.group, dot, field.key),
                    {valueOf(field, *sides[0], frequency), valueOf(field, *sides[1], frequency)},
                    field.shown, tolerance);
            }
        }
    };
    add(module::recordFields);
    if (ofLens) {
        return pairs;
    }
    for (unsigned k = 0; k < VANTRIC_FREQUENCIES; ++k) {
        const std::uint32_t id = module::frequencyBlock(k, RX_FREQUENCY_ID);
        if (sides[0]->wasRead(id) || sides[1]->wasRead(id)) {
            add(module::frequencyFields, fmt::format("frequencies.{}.", k), k);
        }
    }
    add(module::straylightFields);
    std::map<std::string, Pair<text::Json>> custom;
    for (const std::size_t side : {0U, 1U}) {
        for (const module::Table& table : module::customTablesOf(*sides.at(side))) {
            custom[table.name].at(side) = text::hexText(table.bytes);
        }
    }
    for (const auto& [name, fields] : custom) {
        addPairs(pairs, "custom." + name.substr(name.find('_') + 1), fields, module::Shown::hex,
                 tolerance);
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

Comparison::Comparison(const Diagnosis& a, const Diagnosis& b, Tolerances within)
    : sides{&a, &b},
      tolerances(std::move(within)),
      tablesOf{module::tablesOf(a), module::tablesOf(b)},
      blocks(blocksOf(a, b)),
      lens(valuesOf(sides, "lens", tolerances)),
      tables(pairsOf(tablesOf, tolerances)),
      values(valuesOf(sides, "values", tolerances)) {
    const auto counts = [this](const BlockPair& block) {
        return block.differs && !(block.both() && tolerances.given() && !isOpaque(*block.sides[0]));
    };
    others = values.size();
    std::erase_if(values, [](const ValuePair& pair) { return !pair.differs; });
    equal = std::ranges::none_of(blocks, counts) &&
            std::ranges::none_of(lens, &ValuePair::differs) &&
            std::ranges::none_of(tables, &TablePair::differs) && values.empty();
}

}  // namespace calcut::compare
