// Text for people: lines, items and tables that fit the width of a terminal.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "tools/text/Terminal.h"

namespace calcut::text {

struct TextStyle {
    std::size_t width = 0;  ///< columns of the terminal, 0 for as many as it takes
    std::string (*paint)(Colour colour, std::string_view text) = nullptr;  ///< null: no colours
};

/// As standard output takes it.
inline TextStyle styleOfStdout() {
    return {terminalWidth(stdout),
            [](Colour colour, std::string_view text) { return paint(stdout, colour, text); }};
}

/// A column of a table. Of a table that is too wide, columns go in the order of their sacrifice,
/// 1 first; 0 stays.
struct Column {
    std::string heading;
    bool right = false;  ///< aligned to the right
    unsigned sacrifice = 0;
    std::size_t least = 0;  ///< cells may lose their beginning down to this width; 0: never
};

struct Cell {
    Cell() = default;
    // Not explicit: rows are written as lists of texts.
    Cell(std::string is, std::optional<Colour> of = {}) : text(std::move(is)), colour(of) {}
    Cell(std::string_view is, std::optional<Colour> of = {}) : text(is), colour(of) {}
    Cell(const char* is, std::optional<Colour> of = {}) : text(is), colour(of) {}

    std::string text{};
    std::optional<Colour> colour{};
};

/// Cells in the order of the columns; those behind the last one are empty. The note follows them,
/// on lines of its own where it does not fit.
struct Row {
    std::vector<Cell> cells;
    std::string note{};
};

class Lines {
  public:
    explicit Lines(const TextStyle& style) : style_(style) {}

    void line(std::string_view text) { out_.append(text).append("\n"); }

    void heading(std::string_view text) {
        out_ += '\n';
        line(painted(Colour::Bold, text));
    }

    /// Name and value; a value that is too long goes on below itself.
    void item(std::string_view name, std::string_view value, std::optional<Colour> colour = {});

    /// Bytes in hexadecimal, 32 bytes a line or as many as fit.
    void hexItem(std::string_view name, std::string_view hex);

    /// Rows in aligned columns, with a heading. The last column goes on below itself, too.
    void table(std::vector<Column> columns, std::vector<Row> rows);

    [[nodiscard]] std::string painted(std::optional<Colour> colour, std::string_view text) const {
        return style_.paint == nullptr || !colour ? std::string(text) : style_.paint(*colour, text);
    }

    [[nodiscard]] std::string take() { return std::move(out_); }

  private:
    /// Appends text behind a start of that width, broken at spaces where the terminal ends.
    void wrapped(std::size_t start, std::string_view text, std::optional<Colour> colour);

    TextStyle style_;
    std::string out_;
};

}  // namespace calcut::text
