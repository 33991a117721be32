// cut.json as it is found, and the rows of a report as they are read back.
#include <algorithm>
#include <cctype>
#include <string>
#include <vector>

#include "targets.h"
#include "tools/cut/Note.h"
#include "tools/cut/Report.h"
#include "tools/text/Escape.h"

namespace fuzz {

namespace {

namespace cut = calcut::cut;
namespace text = calcut::text;

/// The fields of a line of CSV (RFC 4180).
std::vector<std::string> fieldsOf(const std::string& line) {
    std::vector<std::string> fields(1);
    bool quoted = false;
    for (std::size_t i = 0; i < line.size(); ++i) {
        if (line[i] == '"' && quoted && line[i + 1] == '"') {
            fields.back() += line[++i];
        } else if (line[i] == '"') {
            quoted = !quoted;
        } else if (line[i] == ',' && !quoted) {
            fields.emplace_back();
        } else {
            fields.back() += line[i];
        }
    }
    return fields;
}

bool hasControl(const std::string& text) {
    return std::ranges::any_of(text, [](unsigned char c) { return std::iscntrl(c) != 0; });
}

void readNote(const Bytes& bytes) {
    const text::Json note = cut::parseNote(bytes);
    require(note.is_object(), "a note is an object");
    if (!note.empty()) {
        const std::string printed = text::jsonText(note);
        const text::Json again = cut::parseNote({printed.begin(), printed.end()});
        require(again["source"] == text::escapePath(note["source"].get<std::string>()),
                "a note reads back");
    }
}

void readRow(const Bytes& bytes) {
    // Texts from the input, one behind the other, each of up to 63 bytes.
    auto next = bytes.begin();
    const auto draw = [&] {
        const auto size = next == bytes.end() ? 0 : std::ptrdiff_t{*next++ % 64};
        const auto begin = next;
        next += std::min(size, bytes.end() - next);
        return std::string(begin, next);
    };
    cut::CutResult result;
    result.outcome = static_cast<cut::Outcome>(bytes.size() % 6);
    result.dump = draw();
    result.folder = draw();
    result.reason = draw();
    std::ranges::generate(result.texts, draw);
    const std::string shown = text::escapePath(result.dump);

    const std::string json = cut::jsonRow(result);
    const text::Json row = text::Json::parse(json, nullptr, false);
    require(row.is_object() && row["file"] == shown, "a row of JSON reads back");

    std::string csv = cut::csvRow(result);
    require(csv.ends_with("\r\n"), "a line ends");
    csv.resize(csv.size() - 2);
    require(!hasControl(csv) && !hasControl(json), "a row is one line without control characters");
    const std::vector<std::string> fields = fieldsOf(csv);
    require(fields.size() == 26 && fields[0] == text::escapeFormula(shown),
            "a line of CSV reads back");
    for (const std::size_t textField : {0, 3, 14, 17, 18, 19}) {
        require(fields[textField].find_first_of("=+-@") != 0, "no field is a formula");
    }
}

}  // namespace

void note(const std::uint8_t* data, std::size_t size) {
    const Bytes bytes(data, data + size);
    readNote(bytes);
    readRow(bytes);
}

}  // namespace fuzz
