#include "tools/cut/Progress.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <string>

#include <fmt/format.h>

#include "tools/terminal/Terminal.h"

namespace calcut::tools {

namespace {

void put(const std::string& text) {
    (void)std::fwrite(text.data(), 1, text.size(), stderr);
    (void)std::fflush(stderr);
}

}  // namespace

double secondsSince(Clock::time_point start) {
    return std::chrono::duration<double>(Clock::now() - start).count();
}

Progress::Progress(std::size_t total)
    : total_(total),
      shown_(terminalWidth(stderr) > 0 && terminal().verbosity != Verbosity::Quiet) {}

void Progress::step() {
    ++done_;
    const Clock::time_point now = Clock::now();
    if (!shown_ || now - drawn_ < std::chrono::milliseconds(100)) {
        return;
    }
    drawn_ = now;
    visible_ = true;
    const double seconds = secondsSince(start_);
    const double rate = seconds > 0 ? static_cast<double>(done_) / seconds : 0.0;
    const auto left =
        static_cast<std::uint64_t>(rate > 0 ? static_cast<double>(total_ - done_) / rate : 0.0);
    std::string line = fmt::format("{}/{}  {:.1f} dumps/s  ETA {}:{:02}", done_, total_, rate,
                                   left / 60, left % 60);
    // Not in the last column, where some terminals begin a new line.
    constexpr std::size_t widestBar = 30;
    constexpr std::size_t around = 4;  // brackets, a space, the last column
    const std::size_t width = terminalWidth(stderr);
    if (width > line.size() + around) {
        const std::size_t bar = std::min(widestBar, width - line.size() - around);
        const std::size_t filled = bar * done_ / total_;
        line = fmt::format("[{}{}] {}", std::string(filled, '#'), std::string(bar - filled, '.'),
                           line);
    }
    line.resize(std::min(line.size(), std::max<std::size_t>(width, 1) - 1));
    put("\r" + line + "\x1b[K");
}

void Progress::clear() {
    if (visible_) {
        put("\r\x1b[K");
        visible_ = false;
    }
}

}  // namespace calcut::tools
