#include "RecordingLog.h"

#include <mutex>

namespace {
std::mutex linesMutex;
std::vector<recording::Line> lines;
}  // namespace

namespace skarbo {

SkarLog::SkarLog() : SkarLog(debug) {}
SkarLog::SkarLog(logtype type) : type_(type) {}
SkarLog::~SkarLog() {
    text_ += '\n';
    const std::lock_guard<std::mutex> lock(linesMutex);
    lines.emplace_back(type_, text_);
}
SkarLog& SkarLog::operator<<(std::string text) {
    text_ += text;
    return *this;
}
void SkarLog::showLog() {}

}  // namespace skarbo

namespace recording {

std::vector<Line> takeLines() {
    const std::lock_guard<std::mutex> lock(linesMutex);
    return std::exchange(lines, {});
}

std::vector<std::string> errorsIn(const std::vector<Line>& all) {
    std::vector<std::string> errors;
    for (const auto& [type, text] : all) {
        if (type == skarbo::error) {
            errors.push_back(text.substr(0, text.size() - 1));
        }
    }
    return errors;
}

}  // namespace recording
