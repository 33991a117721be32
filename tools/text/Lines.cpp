#include <algorithm>
#include <numeric>
#include <utility>

#include <fmt/format.h>

#include "tools/text/Lines.h"

namespace calcut::text {

namespace {

constexpr std::size_t nameWidth = 18;
constexpr std::size_t itemStart = 2 + nameWidth + 1;
constexpr std::size_t gap = 2;         // in front of each column
constexpr std::size_t narrowest = 20;  // what a wrapped text has at least

/// A column with its cells, the heading first.
struct Column {
    TableColumn is;
    std::vector<std::string> cells;
    std::size_t width = 0;
};

std::vector<Column> columnsOf(const std::vector<TableColumn>& columns, const Json& rows,
                              const char* missing) {
    std::vector<Column> list;
    for (const TableColumn& is : columns) {
        Column& column = list.emplace_back(Column{is, {std::string(is.heading)}});
        for (const Json& row : rows) {
            column.cells.push_back(filled(is.pattern, row, missing));
        }
        for (const std::string& cell : column.cells) {
            column.width = std::max(column.width, cell.size());
        }
    }
    return list;
}

/// Takes out the columns that a terminal of that width has no place for; their headings.
std::string dropColumns(std::vector<Column>& columns, std::size_t width) {
    const auto total = [&columns] {
        return std::accumulate(
            columns.begin(), columns.end(), std::size_t{0},
            [](std::size_t sum, const Column& column) { return sum + gap + column.width; });
    };
    std::string dropped;
    while (total() > width) {
        const auto first =
            std::min_element(columns.begin(), columns.end(), [](const Column& a, const Column& b) {
                return a.is.sacrifice - 1 < b.is.sacrifice - 1;  // 0 comes last
            });
        if (first->is.sacrifice == 0) {
            break;
        }
        dropped += fmt::format("{}{}", dropped.empty() ? "" : "; ", first->is.heading);
        columns.erase(first);
    }
    return dropped;
}

}  // namespace

std::string valueText(const Json& value, std::string_view format) {
    if (value.is_string()) {
        return value.get<std::string>();
    }
    if (value.is_array()) {
        std::string list;
        for (const Json& element : value) {
            list += (list.empty() ? "" : "  ") + valueText(element, format);
        }
        return list;
    }
    const auto formatted = [&format](auto number) {
        return fmt::format(fmt::runtime(fmt::format("{{{}}}", format)), number);
    };
    return value.is_null()           ? std::string()
           : value.is_number_float() ? formatted(value.get<float>())
                                     : formatted(value.get<std::int64_t>());
}

std::string filled(std::string_view pattern, const Json& tree, const char* missing) {
    std::string line;
    for (std::size_t open = pattern.find('{'); open != std::string_view::npos;
         open = pattern.find('{')) {
        const std::size_t close = pattern.find('}');
        const std::string_view place = pattern.substr(open + 1, close - open - 1);
        const std::string_view key = place.substr(0, place.find(':'));
        const Json value = tree.value(Json::json_pointer("/" + std::string(key)), Json(nullptr));
        if (value.is_null() && missing == nullptr) {
            return {};
        }
        line.append(pattern.substr(0, open));
        line += value.is_null() ? missing : valueText(value, place.substr(key.size()));
        pattern.remove_prefix(close + 1);
    }
    return line.append(pattern);
}

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

void Lines::items(const Json& tree, const std::vector<Item>& items) {
    if (tree.is_array()) {
        for (const Json& element : tree) {
            this->items(element, items);
        }
        return;
    }
    for (const auto& [name, value, colour] : items) {
        if (const std::string shown = filled(value, tree); !shown.empty()) {
            item(filled(name, tree), shown, colour);
        }
    }
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

void Lines::table(const std::vector<TableColumn>& columns, const Json& rows, const char* missing) {
    std::vector<Column> shown = columnsOf(columns, rows, missing);
    const std::string dropped =
        style_.width == 0 ? std::string() : dropColumns(shown, style_.width);
    const Column last = std::move(shown.back());
    shown.pop_back();
    for (std::size_t at = 0; at <= rows.size(); ++at) {
        std::string start;
        for (const Column& column : shown) {
            start += column.is.right ? fmt::format("  {:>{}}", column.cells[at], column.width)
                                     : fmt::format("  {:<{}}", column.cells[at], column.width);
        }
        start.append(gap, ' ');
        if (last.cells[at].empty()) {
            start.erase(start.find_last_not_of(' ') + 1);
        }
        out_ += at == 0 ? painted(Colour::Dim, start) : start;
        wrapped(start.size(), last.cells[at], at == 0 ? std::optional(Colour::Dim) : std::nullopt);
    }
    if (!dropped.empty()) {
        item("", fmt::format("(no room for: {})", dropped));
    }
}

}  // namespace calcut::text
