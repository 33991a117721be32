// Trees as text for people: lines, items and tables that fit the width of a terminal.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "tools/text/Json.h"
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

/// A value as people read it: a list with gaps, null as nothing. format, for instance ":#06x", is
/// for numbers.
std::string valueText(const Json& value, std::string_view format = "");

/// The pattern with the values of an object in place of their keys in braces ("{columns} pixels",
/// "{read/code:#010x}"). Where one of them is null or not there, missing stands for it; without
/// missing the whole line is empty.
std::string filled(std::string_view pattern, const Json& tree, const char* missing = nullptr);

/// A name and its value, as patterns.
struct Item {
    std::string name;
    std::string value;
    std::optional<Colour> colour{};
};

/// A column of a table. Of a table that is too wide, columns go in the order of their sacrifice,
/// 1 first; 0 stays.
struct TableColumn {
    std::string_view heading;
    std::string_view pattern;  ///< of its cells
    bool right = false;        ///< aligned to the right
    unsigned sacrifice = 0;
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

    /// Items of a tree, or of each tree of a list. What is null or empty was not there and is left
    /// out.
    void items(const Json& tree, const std::vector<Item>& items);

    /// Bytes in hexadecimal, 32 bytes a line or as many as fit.
    void hexItem(std::string_view name, std::string_view hex);

    /// Rows in aligned columns, with a heading. The last column goes on below itself, too.
    void table(const std::vector<TableColumn>& columns, const Json& rows,
               const char* missing = nullptr);

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

}  // namespace calcut::text
