#include "CutReport.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <iterator>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "Output.h"

namespace calcut::tools {

namespace {

// Above this many dumps only the failures are listed.
constexpr std::size_t listAll = 50;

// Positions in CutResult::lens.
constexpr std::size_t lensCx = 0;
constexpr std::size_t lensCy = 1;
constexpr std::size_t lensFx = 2;
constexpr std::size_t lensFy = 3;

// Keys in the order they are set; floats in their own shortest form, not in that of a double.
using Json = nlohmann::basic_json<nlohmann::ordered_map, std::vector, std::string, bool,
                                  std::int64_t, std::uint64_t, float>;

const char* resultText(const CutRow& row) {
    if (!row.reached) {
        return "not reached";
    }
    return row.result.cut() ? "cut" : "failed";
}

std::string csvField(const std::string& text) {
    if (text.find_first_of(",\"\r\n") == std::string::npos) {
        return text;
    }
    std::string quoted = "\"";
    for (const char c : text) {
        quoted += c;
        if (c == '"') {
            quoted += c;
        }
    }
    return quoted + '"';
}

std::string renderCsv(const std::vector<CutRow>& rows) {
    std::string csv = "file,layout,result,reason,masked pixels,fx,fy,cx,cy\r\n";
    for (const CutRow& row : rows) {
        const CutResult& result = row.result;
        csv += fmt::format("{},{},{},{},", csvField(row.dump), layoutName(result.layout),
                           resultText(row), csvField(result.reason));
        csv += result.cut()
                   ? fmt::format("{},{},{},{},{}\r\n", result.maskedPixels, result.lens[lensFx],
                                 result.lens[lensFy], result.lens[lensCx], result.lens[lensCy])
                   : std::string(",,,,\r\n");
    }
    return csv;
}

std::string renderJson(const std::vector<CutRow>& rows) {
    Json dumps = Json::array();
    std::size_t cut = 0;
    for (const CutRow& row : rows) {
        const CutResult& result = row.result;
        Json entry;
        entry["file"] = row.dump;
        entry["layout"] = layoutName(result.layout);
        entry["result"] = resultText(row);
        entry["reason"] = result.cut() ? Json() : Json(result.reason);
        entry["maskedPixels"] = result.cut() ? Json(result.maskedPixels) : Json();
        entry["fx"] = result.cut() ? Json(result.lens[lensFx]) : Json();
        entry["fy"] = result.cut() ? Json(result.lens[lensFy]) : Json();
        entry["cx"] = result.cut() ? Json(result.lens[lensCx]) : Json();
        entry["cy"] = result.cut() ? Json(result.lens[lensCy]) : Json();
        dumps.push_back(std::move(entry));
        cut += result.cut() ? 1 : 0;
    }
    Json report;
    report["dumps"] = std::move(dumps);
    report["total"] = rows.size();
    report["cut"] = cut;
    report["failed"] = rows.size() - cut;
    // File names need not be UTF-8, JSON has to be.
    return report.dump(2, ' ', false, Json::error_handler_t::replace) + "\n";
}

constexpr std::size_t columns = 8;
using Line = std::array<std::string, columns>;

Line tableLine(const CutRow& row) {
    const CutResult& result = row.result;
    Line line{row.dump, layoutName(result.layout), resultText(row)};
    if (result.cut()) {
        line[3] = fmt::format("{}", result.maskedPixels);
        line[4] = fmt::format("{}", result.lens[lensFx]);
        line[5] = fmt::format("{}", result.lens[lensFy]);
        line[6] = fmt::format("{}", result.lens[lensCx]);
        line[7] = fmt::format("{}", result.lens[lensCy]);
    }
    return line;
}

}  // namespace

std::string renderReport(const std::vector<CutRow>& rows, ReportFormat format) {
    return format == ReportFormat::Csv ? renderCsv(rows) : renderJson(rows);
}

std::string renderSummary(const std::vector<CutRow>& rows, double seconds) {
    const Line heading{"file", "layout", "result", "masked", "fx", "fy", "cx", "cy"};
    std::vector<const CutRow*> listed;
    std::size_t failed = 0;
    for (const CutRow& row : rows) {
        failed += row.result.cut() ? 0 : 1;
        if (rows.size() <= listAll || (row.reached && !row.result.cut())) {
            listed.push_back(&row);
        }
    }
    std::array<std::size_t, columns> widths{};
    const auto widen = [&widths](const Line& line) {
        for (std::size_t i = 0; i < columns; ++i) {
            widths[i] = std::max(widths[i], line[i].size());
        }
    };
    widen(heading);
    for (const CutRow* row : listed) {
        widen(tableLine(*row));
    }

    std::string text;
    const auto add = [&](const Line& line, const std::string& reason, bool head) {
        std::string out;
        for (std::size_t i = 0; i < columns && (reason.empty() || i < 3); ++i) {
            // Names to the left, numbers to the right.
            std::string cell = i < 3 ? fmt::format("{:<{}}", line[i], widths[i])
                                     : fmt::format("{:>{}}", line[i], widths[i]);
            if (i == 2 && !head) {
                cell = paint(stdout, reason.empty() ? Colour::Green : Colour::Red, cell);
            }
            out += (i > 0 ? "  " : "") + cell;
        }
        if (!reason.empty()) {
            out += "  " + reason;
        }
        text += (head ? paint(stdout, Colour::Bold, out) : out) + "\n";
    };
    if (!listed.empty()) {
        add(heading, "", true);
    }
    for (const CutRow* row : listed) {
        add(tableLine(*row), row->result.reason, false);
    }
    const auto reached = static_cast<std::size_t>(
        std::count_if(rows.begin(), rows.end(), [](const CutRow& row) { return row.reached; }));
    const std::size_t left = rows.size() - reached;
    text += fmt::format("{} dump{}: {} cut, {} failed{}, in {:.2f} s ({:.1f} dumps/s)\n",
                        rows.size(), rows.size() == 1 ? "" : "s", rows.size() - failed,
                        failed - left, left == 0 ? "" : fmt::format(", {} not reached", left),
                        seconds, seconds > 0 ? static_cast<double>(reached) / seconds : 0.0);
    return text;
}

}  // namespace calcut::tools
