#include "tools/cut/Report.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <iterator>
#include <utility>
#include <vector>

#include <fmt/format.h>

#include "tools/cut/Note.h"
#include "tools/files/OutputFile.h"
#include "tools/module/Tree.h"
#include "tools/text/Escape.h"
#include "tools/text/Lines.h"
#include "tools/text/Terminal.h"

namespace calcut::cut {

namespace {

text::Json shortTree(const module::Finding& finding) {
    const text::Json whole = module::findingTree(finding);
    text::Json tree;
    for (const char* key : {"name", "offset", "status", "text"}) {
        tree[key] = whole.at(key);
    }
    return tree;
}

text::Json rowOf(const CutResult& result) {
    using module::orNull;
    const bool good = result.good();
    text::Json row = {{"file", result.dump},
                      {"folder", result.folder},
                      {"layout", result.layout.name},
                      {"bytes", orNull(result.crc.has_value(), result.size)},
                      {"crc32", result.crc ? text::Json(crcText(*result.crc)) : text::Json()},
                      {"result", outcomeName(result.outcome)},
                      {"reason", orNull(!good, result.reason)},
                      {"fault", result.fault ? shortTree(*result.fault) : text::Json()},
                      {"earlierCut", result.earlierCut},
                      {"warnings", text::Json::array()}};
    std::ranges::transform(result.warnings, std::back_inserter(row["warnings"]), shortTree);
    for (std::size_t i = 0; i < result.texts.size(); ++i) {
        row[fmt::format("text{}", i)] = orNull(good, text::escapeBytes(result.texts[i]));
    }
    row["idBytes"] = orNull(good, text::hexText(result.idBytes));
    row["maskedPixels"] = orNull(good, result.maskedPixels);
    for (std::size_t i = 0; i < module::lensNames.size(); ++i) {
        row[module::lensNames[i]] = orNull(good, result.lens[i]);
    }
    return row;
}

// The CSV: these values of a row side by side, their keys in words.
constexpr const char* columns[] = {
    "file",   "layout",       "result",       "reason",   "maskedPixels", "fx",    "fy",
    "cx",     "cy",           "k1",           "k2",       "p1",           "p2",    "k3",
    "folder", "bytes",        "crc32",        "text0",    "text1",        "text2", "idBytes",
    "fault",  "fault/offset", "fault/status", "warnings", "earlierCut"};

// "maskedPixels" is "masked pixels", "fault/offset" is "fault offset".
std::string csvHeading() {
    std::string line;
    for (const char c : fmt::format("{}\r\n", fmt::join(columns, ","))) {
        const bool capital = c >= 'A' && c <= 'Z';
        line += capital ? " " : "";
        line += c == '/' ? ' ' : static_cast<char>(capital ? c - 'A' + 'a' : c);
    }
    return line;
}

// Findings by their names.
std::string fieldOf(const text::Json& value) {
    switch (value.type()) {
        case text::Json::value_t::null:
            return {};
        case text::Json::value_t::string:
            return value.get<std::string>();
        case text::Json::value_t::boolean:
            return value.get<bool>() ? "yes" : "";
        case text::Json::value_t::number_float:
            return fmt::format("{}", value.get<float>());
        case text::Json::value_t::object:
            return fieldOf(value.at("name"));
        case text::Json::value_t::array: {
            std::vector<std::string> fields(value.size());
            std::transform(value.begin(), value.end(), fields.begin(), fieldOf);
            return fmt::format("{}", fmt::join(fields, " "));
        }
        default:
            return text::jsonText(value);
    }
}

std::string csvField(const text::Json& value) {
    const std::string field = fieldOf(value);
    return value.is_string() ? text::csvField(field) : text::csvQuoted(field);
}

// ------------------------------------------------------------------------------------- summary --

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

std::string jsonRow(const CutResult& result) {
    return text::jsonText(rowOf(result));
}

std::string csvRow(const CutResult& result) {
    const text::Json row = rowOf(result);
    std::vector<std::string> fields;
    for (const char* column : columns) {
        const text::Json::json_pointer key("/" + std::string(column));
        fields.push_back(row.contains(key) ? csvField(row[key]) : "");
    }
    return fmt::format("{}\r\n", fmt::join(fields, ","));
}

bool Report::supports(const std::string& path) {
    return path == "-" || path.ends_with(".csv") || path.ends_with(".json");
}

bool Report::isFree(const std::string& path) {
    return files::isFreeForReport(
        path, {csvHeading().substr(0, 40) + "*", R"({"schema":*,"dumps":[[]*)"});
}

void Report::open(const std::string& path) {
    path_ = path;
    json_ = path.ends_with(".json");
    constexpr mode_t everyone = 0666;
    file_ = files::FileDescriptor(
        path == "-" ? STDOUT_FILENO
                    : ::open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC | O_NONBLOCK, everyone));
    struct stat status {};
    const bool isFile = path != "-" && fstat(file_.get(), &status) == 0 && S_ISREG(status.st_mode);
    // The rows of a run that goes on are not lost.
    if (isFile && flock(file_.get(), LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK) {
        throw text::Refused(path, "another command writes it");
    }
    const int error =
        file_.get() < 0 || (isFile && ftruncate(file_.get(), 0) != 0)
            ? errno
            : put(json_ ? fmt::format("{{\"schema\":{},\"dumps\":[", cutSchema) : csvHeading(), {});
    if (error != 0) {
        throw text::Refused(path, text::errnoText(error));
    }
}

int Report::put(std::string text, const Totals& totals) {
    // What closes the object goes along, and is where the next row will be.
    const std::string tail = fmt::format("\n],\"total\":{},\"cut\":{},\"failed\":{}}}\n",
                                         totals.rows, totals.good, totals.failed);
    text += json_ ? tail : "";
    // Nothing is counted before all is in memory.
    totals_ = totals;
    if (path_ == "-") {
        // A reader that went away is told apart from a disk that is full.
        text::writeStdout(text);
        return 0;
    }
    const int error = files::writeAll(file_.get(), text);
    return error == 0 && json_ && lseek(file_.get(), -std::ssize(tail), SEEK_CUR) < 0 ? errno
                                                                                      : error;
}

void Report::tell(int error) {
    if (error != 0 && !std::exchange(failed_, true)) {
        text::printError(path_, text::errnoText(error));
    }
}

void Report::add(std::span<const CutResult> results) {
    Totals totals = totals_;
    std::string text;
    for (const CutResult& result : results) {
        text += json_ ? (totals.rows > 0 ? ",\n" : "\n") + jsonRow(result) : csvRow(result);
        ++totals.rows;
        totals.good += result.good() ? 1 : 0;
        totals.failed += result.outcome == Outcome::Failed ? 1 : 0;
    }
    if (file_.get() >= 0 && !failed_) {
        tell(put(std::move(text), totals));
    }
}

bool Report::close() {
    const int descriptor = file_.release();
    tell(descriptor > STDERR_FILENO && ::close(descriptor) != 0 ? errno : 0);
    return !failed_;
}

std::string summary(std::span<const CutResult> results, double seconds) {
    std::array<std::size_t, outcomeNames.size()> totals{};
    std::vector<text::Row> rows;
    for (const CutResult& result : results) {
        ++totals[static_cast<std::size_t>(result.outcome)];
        if (results.size() <= listAll || result.outcome == Outcome::Failed) {
            rows.push_back(tableRow(result));
        }
    }
    const auto totalOf = [&totals](Outcome outcome) {
        return totals[static_cast<std::size_t>(outcome)];
    };
    std::string counts;
    for (std::size_t i = 0; i < totals.size(); ++i) {
        const bool always = Outcome(i) == Outcome::Failed ||
                            (Outcome(i) == Outcome::Cut && totalOf(Outcome::Equal) == 0);
        if (always || totals[i] > 0) {
            counts +=
                fmt::format("{} {} {}", counts.empty() ? ":" : ",", totals[i], outcomeNames[i]);
        }
    }
    const std::size_t reached = results.size() - totalOf(Outcome::NotReached);
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
