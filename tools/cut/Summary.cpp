#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <numeric>
#include <optional>
#include <utility>
#include <vector>

#include <fmt/format.h>

#include "tools/cut/Report.h"
#include "tools/module/Layout.h"
#include "tools/text/Escape.h"
#include "tools/text/Terminal.h"

namespace calcut::cut {

namespace {

// Above this many dumps only the failures are listed.
constexpr std::size_t listAll = 50;

constexpr std::size_t gap = 2;
constexpr std::size_t resultColumn = 2;  // numbers behind it
using Line = std::vector<std::string>;

Line lineOf(const CutResult& result) {
    Line line{text::escapePath(result.dump), result.layout.name, outcomeName(result.outcome)};
    if (result.good()) {
        line.push_back(result.maskedPixels ? fmt::to_string(*result.maskedPixels) : "");
        for (const float value : std::span(result.lens).first<4>()) {
            line.push_back(fmt::format("{}", value));
        }
    }
    return line;
}

// The end of a path says more than its beginning.
std::string shortened(const std::string& name, std::size_t width) {
    constexpr std::string_view dots = "...";
    if (name.size() <= width) {
        return name;
    }
    std::size_t from = name.size() - (width - dots.size());
    while (from < name.size() && (static_cast<unsigned char>(name[from]) & 0xC0) == 0x80) {
        ++from;
    }
    return std::string(dots) + name.substr(from);
}

// Words of a text on new lines of at most width, each behind an indent.
std::string wrapped(std::string_view text, std::size_t width) {
    constexpr std::size_t indent = 4;
    const std::size_t room = width - std::min(width, indent);
    std::string out;
    while (!text.empty()) {
        std::size_t end = text.size();
        if (end > room) {
            const std::size_t space = text.rfind(' ', room);
            end = std::min(end, space != std::string_view::npos ? space : text.find(' '));
        }
        out += fmt::format("\n{:{}}{}", "", indent, text.substr(0, end));
        text.remove_prefix(std::min(end + 1, text.size()));
    }
    return out;
}

// As wide as the longest cells. A terminal gives up columns from the right, and then the beginnings
// of long names.
std::vector<std::size_t> widthsOf(const std::vector<Line>& lines, std::size_t width) {
    std::vector<std::size_t> widths(lines[0].size());
    for (const Line& line : lines) {
        for (std::size_t i = 0; i < line.size(); ++i) {
            widths[i] = std::max(widths[i], line[i].size());
        }
    }
    constexpr std::size_t leastName = 12;
    std::size_t others =
        std::accumulate(widths.begin() + 1, widths.end(), gap * (widths.size() - 1));
    while (width > 0 && widths.size() > resultColumn + 1 && leastName + others > width) {
        others -= gap + widths.back();
        widths.pop_back();
    }
    if (width > 0) {
        widths[0] = std::min(widths[0], std::max(leastName, width - std::min(width, others)));
    }
    return widths;
}

std::string rowText(const Line& line, const std::vector<std::size_t>& widths,
                    std::optional<text::Colour> resultColour) {
    std::string row;
    for (std::size_t i = 0; i < std::min(line.size(), widths.size()); ++i) {
        const std::string cell =
            i > resultColumn ? fmt::format("{:>{}}", line[i], widths[i])
                             : fmt::format("{:<{}}", shortened(line[i], widths[i]), widths[i]);
        row.append(i > 0 ? gap : 0, ' ');
        row += i == resultColumn && resultColour ? text::paint(stdout, *resultColour, cell) : cell;
    }
    return row;
}

std::string table(const std::vector<const CutResult*>& results, std::size_t width) {
    std::vector<Line> lines = {{"file", "layout", "result", "masked", "fx", "fy", "cx", "cy"}};
    for (const CutResult* result : results) {
        lines.push_back(lineOf(*result));
    }
    const std::vector<std::size_t> widths = widthsOf(lines, width);
    std::string text =
        text::paint(stdout, text::Colour::Bold, rowText(lines[0], widths, {})) + "\n";
    const std::size_t used = std::accumulate(widths.begin(), widths.begin() + resultColumn + 1,
                                             gap * (resultColumn + 1));
    for (std::size_t i = 0; i < results.size(); ++i) {
        const CutResult& result = *results[i];
        text +=
            rowText(lines[i + 1], widths, result.good() ? text::Colour::Green : text::Colour::Red);
        if (!result.good()) {
            const bool fits = width == 0 || used + result.reason.size() <= width;
            text += fits ? "  " + result.reason : wrapped(result.reason, width);
        }
        text += "\n";
    }
    return text;
}

}  // namespace

std::string summary(std::span<const CutResult> results, double seconds, std::size_t width) {
    std::array<std::size_t, 6> totals{};
    std::vector<const CutResult*> listed;
    for (const CutResult& result : results) {
        ++totals[static_cast<std::size_t>(result.outcome)];
        if (results.size() <= listAll || result.outcome == Outcome::Failed) {
            listed.push_back(&result);
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
    return (listed.empty() ? std::string() : table(listed, width)) +
           fmt::format("{} dump{}{}, in {:.2f} s ({:.1f} dumps/s)\n", results.size(),
                       results.size() == 1 ? "" : "s", counts, seconds,
                       seconds > 0 ? static_cast<double>(reached) / seconds : 0.0);
}

}  // namespace calcut::cut
