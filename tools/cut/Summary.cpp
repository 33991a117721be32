#include <algorithm>
#include <array>

#include <fmt/format.h>

#include "tools/cut/Report.h"
#include "tools/terminal/Escape.h"
#include "tools/terminal/Terminal.h"

namespace calcut::tools {

namespace {

// Above this many dumps only the failures are listed.
constexpr std::size_t listAll = 50;

constexpr std::size_t columns = 8;
constexpr std::size_t gap = 2;
constexpr std::size_t numbersFrom = 3;
using Line = std::array<std::string, columns>;

Line lineOf(const CutResult& result) {
    Line line{escapePath(result.dump), layoutName(result.layout), outcomeName(result.outcome)};
    if (result.good()) {
        line[numbersFrom] = fmt::format("{}", result.maskedPixels);
        for (std::size_t i = numbersFrom + 1; i < columns; ++i) {
            line[i] = fmt::format("{}", result.lens[i - numbersFrom - 1]);
        }
    }
    return line;
}

// The end of a path says more than its beginning.
void shorten(std::string& name, std::size_t width) {
    constexpr std::string_view dots = "...";
    if (name.size() <= width) {
        return;
    }
    std::size_t from = name.size() - (width - dots.size());
    while (from < name.size() && (static_cast<unsigned char>(name[from]) & 0xC0) == 0x80) {
        ++from;
    }
    name = std::string(dots) + name.substr(from);
}

// Words of a text in lines of at most width, each behind an indent.
std::string wrapped(const std::string& text, std::size_t indent, std::size_t width) {
    std::string out;
    std::size_t column = 0;
    for (std::size_t at = 0; at < text.size();) {
        const std::size_t end = std::min(text.find(' ', at), text.size());
        if (column == 0 || (width > 0 && column + 1 + end - at > width)) {
            out += column == 0 ? "" : "\n";
            out.append(indent, ' ');
            column = indent;
        } else {
            out += ' ';
            ++column;
        }
        out.append(text, at, end - at);
        column += end - at;
        at = end + 1;
    }
    return out + "\n";
}

class Table {
  public:
    explicit Table(std::size_t width) : width_(width) {}

    void add(Line line, const CutResult* result) {
        for (std::size_t i = 0; i < columns; ++i) {
            widths_[i] = std::max(widths_[i], line[i].size());
        }
        rows_.push_back({std::move(line), result});
    }

    std::string text() {
        if (width_ > 0) {
            fitNames();
        }
        std::string all;
        for (Row& row : rows_) {
            all += rowText(row);
        }
        return all;
    }

  private:
    struct Row {
        Line line;
        const CutResult* result;  ///< null for the heading
    };

    // Gives up columns from the right, and then the beginnings of long names.
    void fitNames() {
        constexpr std::size_t leastName = 12;
        std::size_t others = 0;
        for (shown_ = 1; shown_ < columns; ++shown_) {
            others += gap + widths_[shown_];
            if (shown_ >= numbersFrom && leastName + others > width_) {
                others -= gap + widths_[shown_];
                break;
            }
        }
        const std::size_t room = std::max(leastName, width_ - std::min(width_, others));
        widths_[0] = std::min(widths_[0], room);
        for (Row& row : rows_) {
            shorten(row.line[0], room);
        }
    }

    std::string rowText(const Row& row) {
        const bool failed = row.result != nullptr && !row.result->good();
        std::string out;
        for (std::size_t i = 0; i < (failed ? numbersFrom : shown_); ++i) {
            // Names to the left, numbers to the right.
            std::string cell = i < numbersFrom ? fmt::format("{:<{}}", row.line[i], widths_[i])
                                               : fmt::format("{:>{}}", row.line[i], widths_[i]);
            if (i == 2 && row.result != nullptr) {
                cell = paint(stdout, failed ? Colour::Red : Colour::Green, cell);
            }
            out += i > 0 ? "  " : "";
            out += cell;
        }
        if (row.result == nullptr) {
            return paint(stdout, Colour::Bold, out) + "\n";
        }
        if (!failed) {
            return out + "\n";
        }
        const std::size_t used = widths_[0] + widths_[1] + widths_[2] + 3 * gap;
        constexpr std::size_t indent = 4;
        return width_ == 0 || used + row.result->reason.size() <= width_
                   ? out + "  " + row.result->reason + "\n"
                   : out + "\n" + wrapped(row.result->reason, indent, width_);
    }

    std::size_t width_;
    std::size_t shown_ = columns;
    std::array<std::size_t, columns> widths_{};
    std::vector<Row> rows_;
};

}  // namespace

std::string summary(const std::vector<CutResult>& results, double seconds, std::size_t width) {
    Table table(width);
    std::array<std::size_t, 4> totals{};
    bool listed = false;
    for (const CutResult& result : results) {
        ++totals[static_cast<std::size_t>(result.outcome)];
        if (results.size() <= listAll || result.outcome == Outcome::Failed) {
            if (!listed) {
                table.add({"file", "layout", "result", "masked", "fx", "fy", "cx", "cy"}, nullptr);
            }
            listed = true;
            table.add(lineOf(result), &result);
        }
    }
    const auto total = [&](Outcome outcome) { return totals[static_cast<std::size_t>(outcome)]; };
    const std::size_t left = total(Outcome::NotReached);
    const auto part = [](std::size_t count, const char* what) {
        return count == 0 ? std::string() : fmt::format(", {} {}", count, what);
    };
    return table.text() +
           fmt::format("{} dump{}: {} cut{}, {} failed{}, in {:.2f} s ({:.1f} dumps/s)\n",
                       results.size(), results.size() == 1 ? "" : "s", total(Outcome::Cut),
                       part(total(Outcome::Kept), "kept"), total(Outcome::Failed),
                       part(left, "not reached"), seconds,
                       seconds > 0 ? static_cast<double>(results.size() - left) / seconds : 0.0);
}

}  // namespace calcut::tools
