#include "tools/inspect/Lines.h"

#include <algorithm>
#include <numeric>
#include <utility>

#include <fmt/format.h>

namespace calcut::tools {

namespace {

constexpr std::size_t nameWidth = 18;
constexpr std::size_t itemStart = 2 + nameWidth + 1;
constexpr std::size_t gap = 2;         // in front of each column
constexpr std::size_t narrowest = 20;  // what a wrapped text has at least

std::vector<std::size_t> widthsOf(const std::vector<TableColumn>& columns,
                                  const std::vector<TableRow>& rows) {
    std::vector<std::size_t> widths;
    for (std::size_t i = 0; i < columns.size(); ++i) {
        std::size_t width = columns[i].heading.size();
        for (const TableRow& row : rows) {
            width = std::max(width, i < row.size() ? row[i].size() : 0);
        }
        widths.push_back(width);
    }
    return widths;
}

std::size_t total(const std::vector<std::size_t>& widths) {
    return std::accumulate(widths.begin(), widths.end(), gap * widths.size());
}

/// Takes out the columns that a terminal of that width has no place for; their headings.
std::string dropColumns(std::vector<TableColumn>& columns, std::vector<TableRow>& rows,
                        std::size_t width) {
    std::string dropped;
    while (total(widthsOf(columns, rows)) > width) {
        const auto weight = [](const TableColumn& column) { return column.sacrifice - 1; };
        const auto first = std::min_element(
            columns.begin(), columns.end(),
            [&](const TableColumn& a, const TableColumn& b) { return weight(a) < weight(b); });
        if (first->sacrifice == 0) {
            break;
        }
        dropped += fmt::format("{}{}", dropped.empty() ? "" : "; ", first->heading);
        const auto at = first - columns.begin();
        for (TableRow& row : rows) {
            if (at < std::ssize(row)) {
                row.erase(row.begin() + at);
            }
        }
        columns.erase(first);
    }
    return dropped;
}

}  // namespace

void Lines::wrapped(std::size_t start, std::string_view text, std::optional<Colour> colour) {
    const auto put = [&](std::string_view part) {
        line(colour ? painted(*colour, part) : std::string(part));
    };
    const std::size_t room = std::max(narrowest, style_.width - std::min(style_.width, start));
    while (style_.width != 0 && text.size() > room) {
        const std::size_t space = text.find_last_of(' ', room);
        const std::size_t end = space == std::string_view::npos || space == 0 ? room : space;
        put(text.substr(0, text.find_last_not_of(' ', end - 1) + 1));
        text.remove_prefix(std::min(text.find_first_not_of(' ', end), text.size()));
        out_.append(start, ' ');
    }
    put(text);
}

void Lines::item(std::string_view name, std::string_view value, std::optional<Colour> colour) {
    if (value.empty()) {
        line(fmt::format("  {}", name));
        return;
    }
    out_ += fmt::format("  {:<{}} ", name, nameWidth);
    wrapped(itemStart, value, colour);
}

void Lines::hexItem(std::string_view name, std::string_view hex) {
    constexpr std::size_t digits = 64;
    const std::size_t perLine =
        style_.width == 0 || style_.width >= itemStart + digits ? digits : digits / 2;
    do {
        item(name, hex.substr(0, perLine));
        hex.remove_prefix(std::min(perLine, hex.size()));
        name = "";
    } while (!hex.empty());
}

void Lines::table(std::vector<TableColumn> columns, std::vector<TableRow> rows) {
    // A last column that is wrapped takes no more than its heading.
    const bool wraps = style_.width != 0 && columns.back().sacrifice == 0;
    const std::string dropped = wraps ? dropColumns(columns, rows, style_.width) : std::string();
    const std::vector<std::size_t> widths = widthsOf(columns, rows);
    TableRow headings;
    for (const TableColumn& column : columns) {
        headings.emplace_back(column.heading);
    }
    rows.insert(rows.begin(), std::move(headings));
    for (std::size_t at = 0; at < rows.size(); ++at) {
        std::string start;
        for (std::size_t i = 0; i + 1 < rows[at].size(); ++i) {
            start += columns[i].right ? fmt::format("  {:>{}}", rows[at][i], widths[i])
                                      : fmt::format("  {:<{}}", rows[at][i], widths[i]);
        }
        start.append(gap, ' ');
        if (rows[at].back().empty()) {
            start.erase(start.find_last_not_of(' ') + 1);
        }
        out_ += at == 0 ? painted(Colour::Dim, start) : start;
        wrapped(start.size(), rows[at].back(), at == 0 ? std::optional(Colour::Dim) : std::nullopt);
    }
    if (!dropped.empty()) {
        item("", fmt::format("(no room for: {})", dropped));
    }
}

}  // namespace calcut::tools
