// How two modules differ. docs/compare-json.md describes what counts.
#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "tools/module/Diagnosis.h"
#include "tools/module/RecordFields.h"
#include "tools/module/Tables.h"
#include "tools/text/Json.h"
#include "tools/text/Lines.h"

namespace calcut::compare {

/// What counts as equal, by the name of a table, "lens" or "values"; the empty name is for all
/// that are not named.
struct Tolerances {
    std::map<std::string, double> absolute, relative;

    /// With any, only decoded values count, however they are stored.
    [[nodiscard]] bool given() const { return !absolute.empty() || !relative.empty(); }
    [[nodiscard]] module::Tolerance of(const std::string& name) const;
};

/// Takes "1e-4" or "psf=1e-7"; what is wrong with it, or nothing.
std::optional<std::string> addTolerance(std::map<std::string, double>& to, const std::string& text);

template <class Side>
using Pair = std::array<Side, 2>;  ///< of A and of B

struct BlockPair {
    std::uint32_t id = 0;
    Pair<const vantric::BlockSighting*> sides{};  ///< null where there is none
    std::uint64_t differingBytes = 0;             ///< of the payloads, when both are there
    bool differs = false;

    [[nodiscard]] bool both() const { return sides[0] != nullptr && sides[1] != nullptr; }
};

struct ValuePair {
    std::string name;
    Pair<text::Json> sides{};  ///< null where there is none
    module::Shown shown = module::Shown::plain;
    std::optional<double> difference{};  ///< of numbers
    bool differs = false;
};

struct TablePair {
    Pair<const module::Table*> sides{};
    bool comparable = false;  ///< both are there, in one size
    module::TableDifference difference{};

    [[nodiscard]] const module::Table& known() const {
        return *(sides[0] == nullptr ? sides[1] : sides[0]);
    }
    [[nodiscard]] bool differs() const { return !comparable || difference.differing != 0; }
};

/// Points into both diagnoses, which have records.
struct Comparison {
    Pair<const module::Diagnosis*> sides{};
    Tolerances tolerances;
    Pair<std::vector<module::Table>> tablesOf;
    bool equal = false;
    std::vector<BlockPair> blocks;
    std::vector<ValuePair> lens;
    std::vector<TablePair> tables;
    std::vector<ValuePair> values;  ///< of the others, those that differ
    std::size_t others = 0;

    Comparison(const module::Diagnosis& a, const module::Diagnosis& b, Tolerances within);
    Comparison(const Comparison&) = delete;
    Comparison& operator=(const Comparison&) = delete;
    ~Comparison() = default;
};

/// Rises when a key goes or changes its meaning; new keys do not count.
inline constexpr int compareSchema = 1;

// With the paths of A and B as given.
text::Json treeOf(const Comparison& comparison, const Pair<std::string>& paths);
/// Lines of text, the last one ended, too.
std::string textOf(const Comparison& comparison, const Pair<std::string>& paths,
                   const text::TextStyle& style);

}  // namespace calcut::compare
