#include "tools/cut/Report.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

#include <fmt/format.h>

#include "tools/cut/CutJson.h"
#include "tools/dump/Names.h"
#include "tools/terminal/Escape.h"
#include "tools/terminal/Terminal.h"

namespace calcut::tools {

namespace {

bool endsWith(const std::string& text, std::string_view ending) {
    return text.size() >= ending.size() &&
           text.compare(text.size() - ending.size(), ending.size(), ending) == 0;
}

std::string csvField(const std::string& text) {
    if (text.find_first_of(",\"\r\n") == std::string::npos) {
        return text;
    }
    std::string quoted = "\"";
    for (const char c : text) {
        quoted.append(c == '"' ? 2 : 1, c);
    }
    return quoted + '"';
}

std::string csvHeading() {
    return fmt::format(
        "file,layout,result,reason,masked pixels,{},folder,bytes,crc32,text0,text1,text2,id bytes,"
        "fault,fault offset,fault status,warnings,earlier cut\r\n",
        fmt::join(lensNames, ","));
}

std::string csvRow(const CutResult& result) {
    std::vector<std::string> fields = {result.dump, layoutName(result.layout),
                                       outcomeName(result.outcome), result.reason};
    const bool good = result.good();
    const auto add = [&fields](bool known, const std::string& text) {
        fields.push_back(known ? text : std::string());
    };
    add(good, fmt::format("{}", result.maskedPixels));
    for (const float value : result.lens) {
        add(good, fmt::format("{}", value));
    }
    fields.push_back(result.folder);
    add(result.loaded, fmt::format("{}", result.size));
    add(result.loaded, fmt::format("{:#010x}", result.crc));
    for (const std::string& text : result.texts) {
        add(good, escapeBytes(text));
    }
    add(good, hexText(result.idBytes));
    const Finding fault = result.fault.value_or(Finding());
    fields.push_back(fault.name);
    add(result.fault.has_value(), fmt::format("{}", fault.offset));
    add(fault.status != VANTRIC_OK, statusName(fault.status));
    std::vector<std::string> warnings;
    for (const Finding& warning : result.warnings) {
        warnings.push_back(warning.name);
    }
    fields.push_back(fmt::format("{}", fmt::join(warnings, " ")));
    fields.emplace_back(result.earlierCut ? "yes" : "");
    std::string row;
    for (const std::string& field : fields) {
        row += csvField(field);
        row += &field == &fields.back() ? "\r\n" : ",";
    }
    return row;
}

}  // namespace

Report::~Report() {
    (void)close();
}

bool Report::supports(const std::string& path) {
    return endsWith(path, ".csv") || endsWith(path, ".json");
}

bool Report::open(const std::string& path) {
    path_ = path;
    json_ = endsWith(path, ".json");
    constexpr mode_t everyone = 0666;
    descriptor_ =
        ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_NONBLOCK, everyone);
    if (descriptor_ < 0) {
        printError(path, std::generic_category().message(errno));
        return false;
    }
    put(json_ ? fmt::format("{{\"schema\":{},\"dumps\":[", cutSchema) : csvHeading());
    add(nullptr, 0);
    return !failed_;
}

void Report::put(const std::string& text) {
    std::size_t done = 0;
    while (!failed_ && done < text.size()) {
        const ssize_t put = pwrite(descriptor_, text.data() + done, text.size() - done,
                                   static_cast<off_t>(end_ + done));
        if (put >= 0) {
            done += static_cast<std::size_t>(put);
        } else if (errno != EINTR) {
            failed_ = true;
            printError(path_, std::generic_category().message(errno));
        }
    }
    end_ += text.size();
}

void Report::add(const CutResult* first, std::size_t count) {
    if (descriptor_ < 0) {
        return;
    }
    std::string text;
    for (std::size_t i = 0; i < count; ++i) {
        const CutResult& result = first[i];
        text += json_ ? (rows_ > 0 ? ",\n" : "\n") + toJson(result) : csvRow(result);
        ++rows_;
        cut_ += result.good() ? 1 : 0;
        failedRows_ += result.outcome == Outcome::Failed ? 1 : 0;
    }
    if (!json_) {
        put(text);
        return;
    }
    // What closes the object goes along, and is where the next row will be.
    const std::string tail =
        fmt::format("\n],\"total\":{},\"cut\":{},\"failed\":{}}}\n", rows_, cut_, failedRows_);
    put(text + tail);
    end_ -= tail.size();
}

bool Report::close() {
    if (descriptor_ >= 0 && ::close(descriptor_) != 0 && !failed_) {
        failed_ = true;
        printError(path_, std::generic_category().message(errno));
    }
    descriptor_ = -1;
    return !failed_;
}

}  // namespace calcut::tools
