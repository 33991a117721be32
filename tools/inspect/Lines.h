// Lines, items and tables that fit the width of a terminal.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "tools/inspect/Text.h"

namespace calcut::tools {

/// A column of a table. Of a table that is too wide, columns go in the order of their sacrifice,
/// 1 first; 0 stays.
struct TableColumn {
    std::string_view heading;
    bool right;  ///< aligned to the right
    unsigned sacrifice;
};

using TableRow = std::vector<std::string>;

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
    void table(std::vector<TableColumn> columns, std::vector<TableRow> rows);

    [[nodiscard]] std::string painted(Colour colour, std::string_view text) const {
        return style_.paint == nullptr ? std::string(text) : style_.paint(colour, text);
    }

    [[nodiscard]] std::string take() { return std::move(out_); }

  private:
    /// Appends text behind a start of that width, broken at spaces where the terminal ends.
    void wrapped(std::size_t start, std::string_view text, std::optional<Colour> colour);

    TextStyle style_;
    std::string out_;
};

}  // namespace calcut::tools
