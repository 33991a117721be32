#include "cutter/SkarLog.h"

#include <array>
#include <cstddef>

#if defined(__ANDROID__)
#include <android/log.h>
#else
#include <cstdio>
#endif

namespace skarbo {

namespace {

constexpr const char* logTag = "__SKARBO__ ";

constexpr int defaultPriority = 1;
constexpr std::array<int, 4> priorities = {4, 3, 5, 6};  // info, debug, warning, error

void emit(int priority, const char* text) {
#if defined(__ANDROID__)
    __android_log_print(priority, logTag, "%s", text);
#else
    // A lost trace line is nobody's failure.
    static_cast<void>(std::fprintf(stderr, "%d %s%s\n", priority, logTag, text));
#endif
}

}  // namespace

SkarLog::SkarLog() : SkarLog(debug) {}

SkarLog::SkarLog(logtype type) : type_(type) {}

SkarLog::~SkarLog() {
    text_ += '\n';
}

SkarLog& SkarLog::operator<<(std::string text) {
    text_.reserve(text_.size() + text.size() + 1);
    text_ += text;
    return *this;
}

void SkarLog::showLog() {
    emit(getLogLevel(type_), text_.c_str());
}

int getLogLevel(logtype type) {
    const auto index = static_cast<std::size_t>(static_cast<std::int64_t>(type) - 1);
    return index < priorities.size() ? priorities[index] : defaultPriority;
}

}  // namespace skarbo
