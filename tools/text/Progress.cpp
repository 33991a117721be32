#include "tools/text/Progress.h"

#include <algorithm>
#include <string>

#include <fmt/format.h>

namespace calcut::text {

Progress::Progress(std::size_t total)
    : total_(total),
      shown_(terminalWidth(stderr) > 0 && terminal().verbosity != Verbosity::Quiet) {}

double Progress::seconds() const {
    return std::chrono::duration<double>(Clock::now() - start_).count();
}

void Progress::step() {
    ++done_;
    const Clock::time_point now = Clock::now();
    if (!shown_ || now - drawn_ < std::chrono::milliseconds(100)) {
        return;
    }
    drawn_ = now;
    // At least the time between two drawings has passed.
    const double rate = static_cast<double>(done_) / seconds();
    const auto left = static_cast<std::uint64_t>(static_cast<double>(total_ - done_) / rate);
    std::string line = fmt::format("{}/{}  {:.1f} dumps/s  ETA {}:{:02}", done_, total_, rate,
                                   left / 60, left % 60);
    // Not in the last column, where some terminals begin a new line.
    constexpr std::size_t widestBar = 30;
    constexpr std::size_t around = 4;  // brackets, a space, the last column
    const std::size_t width = terminalWidth(stderr);
    if (width > line.size() + around) {
        const std::size_t bar = std::min(widestBar, width - line.size() - around);
        line = fmt::format("[{:.<{}}] {}", std::string(bar * done_ / total_, '#'), bar, line);
    }
    line.resize(std::min(line.size(), std::max<std::size_t>(width, 1) - 1));
    showStatus(line);
}

}  // namespace calcut::text
