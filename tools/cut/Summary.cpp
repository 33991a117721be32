#include <array>
#include <utility>
#include <vector>

#include <fmt/format.h>

#include "tools/cut/Report.h"
#include "tools/text/Escape.h"
#include "tools/text/Lines.h"

namespace calcut::cut {

namespace {

// Above this many dumps only the failures are listed.
constexpr std::size_t listAll = 50;

constexpr std::size_t leastName = 12;  // columns that a name keeps on a narrow terminal

text::Row tableRow(const CutResult& result) {
    text::Row row{
        {text::escapePath(result.dump),
         result.layout.name,
         {outcomeName(result.outcome), result.good() ? text::Colour::Green : text::Colour::Red}}};
    if (!result.good()) {
        row.note = result.reason;
        return row;
    }
    row.cells.emplace_back(fmt::to_string(result.maskedPixels));
    for (const float value : std::span(result.lens).first<4>()) {
        row.cells.emplace_back(fmt::format("{}", value));
    }
    return row;
}

}  // namespace

std::string summary(std::span<const CutResult> results, double seconds) {
    std::array<std::size_t, 6> totals{};
    std::vector<text::Row> rows;
    for (const CutResult& result : results) {
        ++totals[static_cast<std::size_t>(result.outcome)];
        if (results.size() <= listAll || result.outcome == Outcome::Failed) {
            rows.push_back(tableRow(result));
        }
    }
    std::string counts;
    const auto add = [&](Outcome outcome, bool always) {
        const std::size_t count = totals[static_cast<std::size_t>(outcome)];
        if (always || count > 0) {
            counts +=
                fmt::format("{} {} {}", counts.empty() ? ":" : ",", count, outcomeName(outcome));
        }
    };
    const bool verified = totals[static_cast<std::size_t>(Outcome::Equal)] > 0;
    add(Outcome::Cut, !verified);
    add(Outcome::Equal, false);
    add(Outcome::Kept, false);
    add(Outcome::Repaired, false);
    add(Outcome::Failed, true);
    add(Outcome::NotReached, false);
    const std::size_t reached =
        results.size() - totals[static_cast<std::size_t>(Outcome::NotReached)];
    text::Lines lines(text::styleOfStdout());
    if (!rows.empty()) {
        lines.table({{"file", false, 0, leastName},
                     {"layout"},
                     {"result"},
                     {"masked", true, 5},
                     {"fx", true, 4},
                     {"fy", true, 3},
                     {"cx", true, 2},
                     {"cy", true, 1}},
                    std::move(rows));
    }
    lines.line(fmt::format("{} dump{}{}, in {:.2f} s ({:.1f} dumps/s)", results.size(),
                           results.size() == 1 ? "" : "s", counts, seconds,
                           seconds > 0 ? static_cast<double>(reached) / seconds : 0.0));
    return lines.take();
}

}  // namespace calcut::cut
