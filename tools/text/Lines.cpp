#include "tools/text/Lines.h"

#include <algorithm>
#include <utility>

#include <fmt/format.h>

namespace calcut::text {

namespace {

constexpr std::size_t nameWidth = 18;
constexpr std::size_t itemStart = 2 + nameWidth + 1;
constexpr std::size_t gap = 2;         // in front of each column
constexpr std::size_t narrowest = 20;  // what a wrapped text has at least

bool continuesCharacter(char byte) {
    return (static_cast<unsigned char>(byte) & 0xC0) == 0x80;
}

/// Of UTF-8, in characters.
std::size_t widthOf(std::string_view text) {
    return text.size() -
           static_cast<std::size_t>(std::count_if(text.begin(), text.end(), continuesCharacter));
}

/// Bytes of so many characters at the start of a text that has more.
std::size_t sizeOf(std::string_view text, std::size_t characters) {
    std::size_t size = 0;
    while (continuesCharacter(text[size]) || characters > 0) {
        characters -= continuesCharacter(text[size]) ? 0 : 1;
        ++size;
    }
    return size;
}

/// The end of a path says more than its beginning.
void shorten(std::string& text, std::size_t width) {
    constexpr std::string_view dots = "...";
    if (const std::size_t has = widthOf(text); has > width) {
        text.replace(0, sizeOf(text, has + dots.size() - width), dots);
    }
}

/// Takes out the columns that a terminal of that width has no place for; their headings.
std::string dropColumns(std::vector<Column>& columns, std::vector<Row>& rows,
                        std::vector<std::size_t>& widths, std::size_t room) {
    const auto total = [&] {
        std::size_t sum = 0;
        for (std::size_t i = 0; i < columns.size(); ++i) {
            sum +=
                gap + (columns[i].least == 0 ? widths[i] : std::min(widths[i], columns[i].least));
        }
        return sum;
    };
    std::string dropped;
    while (total() > room) {
        const auto first =
            std::min_element(columns.begin(), columns.end(), [](const Column& a, const Column& b) {
                return a.sacrifice - 1 < b.sacrifice - 1;  // 0 comes last
            });
        if (first->sacrifice == 0) {
            break;
        }
        dropped += (dropped.empty() ? "" : "; ") + first->heading;
        const auto at = first - columns.begin();
        for (Row& row : rows) {
            if (at < std::ssize(row.cells)) {
                row.cells.erase(row.cells.begin() + at);
            }
        }
        widths.erase(widths.begin() + at);
        columns.erase(first);
    }
    // What is left of the room goes to the columns that can be shortened.
    for (std::size_t i = 0; i < columns.size(); ++i) {
        if (columns[i].least != 0) {
            const std::size_t others = total() - std::min(widths[i], columns[i].least);
            widths[i] =
                std::min(widths[i], std::max(columns[i].least, room - std::min(room, others)));
            columns[i].least = widths[i];
        }
    }
    return dropped;
}

}  // namespace

void Lines::wrapped(std::size_t start, std::string_view text, std::optional<Colour> colour) {
    const std::size_t room = std::max(narrowest, style_.width - std::min(style_.width, start));
    while (style_.width != 0 && widthOf(text) > room) {
        const std::size_t full = sizeOf(text, room);
        const std::size_t space = text.find_last_of(' ', full);
        const std::size_t end = space == std::string_view::npos || space == 0 ? full : space;
        line(painted(colour, text.substr(0, text.find_last_not_of(' ', end - 1) + 1)));
        text.remove_prefix(std::min(text.find_first_not_of(' ', end), text.size()));
        out_.append(start, ' ');
    }
    line(painted(colour, text));
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

void Lines::table(std::vector<Column> columns, std::vector<Row> rows) {
    Row headings;
    for (const Column& column : columns) {
        headings.cells.emplace_back(column.heading, Colour::Dim);
    }
    rows.insert(rows.begin(), std::move(headings));
    std::vector<std::size_t> widths(columns.size());
    for (const Row& row : rows) {
        for (std::size_t i = 0; i < row.cells.size(); ++i) {
            widths.at(i) = std::max(widths[i], widthOf(row.cells[i].text));
        }
    }
    const std::string dropped =
        style_.width == 0 ? std::string() : dropColumns(columns, rows, widths, style_.width);
    for (Row& row : rows) {
        std::size_t at = 0;      // where the line has come to
        std::size_t spaces = 0;  // that it owes, unless it ends here
        const auto pay = [&] {
            out_.append(spaces, ' ');
            at += std::exchange(spaces, 0);
        };
        for (std::size_t i = 0; i < row.cells.size(); ++i) {
            auto& [text, colour] = row.cells[i];
            spaces += gap;
            if (text.empty()) {
                spaces += widths[i];
                continue;
            }
            if (columns[i].least != 0) {
                shorten(text, widths[i]);
            }
            if (i + 1 == columns.size()) {
                break;
            }
            const std::size_t padding = widths[i] - widthOf(text);
            spaces += columns[i].right ? padding : 0;
            pay();
            out_ += painted(colour, text);
            at += widthOf(text);
            spaces = columns[i].right ? 0 : padding;
        }
        const bool full = row.cells.size() == columns.size();
        const Cell last = full ? row.cells.back() : Cell(row.note);
        spaces += full ? 0 : gap;
        if (last.text.empty()) {
            line("");
            continue;
        }
        if (!full && style_.width != 0 && at + spaces + widthOf(last.text) > style_.width) {
            line("");
            at = 0;
            spaces = 2 * gap;
        }
        pay();
        wrapped(at, last.text, last.colour);
    }
    if (!dropped.empty()) {
        item("", fmt::format("(no room for: {})", dropped));
    }
}

}  // namespace calcut::text
