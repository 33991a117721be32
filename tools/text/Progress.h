// How far a long work has come, on one line of a terminal.
#pragma once

#include <chrono>
#include <cstddef>

#include "tools/text/Terminal.h"

namespace calcut::text {

/// One line on a terminal, drawn over and over and never wider than it, and nothing anywhere else.
/// Errors and warnings take its place until the next step.
class Progress {
  public:
    explicit Progress(std::size_t total);
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;
    ~Progress() { clear(); }

    void step();
    /// Takes the line away until the next step, for other text to be printed.
    void clear() { showStatus(""); }
    /// Since this began.
    [[nodiscard]] double seconds() const;

  private:
    using Clock = std::chrono::steady_clock;

    std::size_t total_;
    std::size_t done_ = 0;
    bool shown_;
    Clock::time_point start_ = Clock::now();
    Clock::time_point drawn_ = start_;
};

}  // namespace calcut::text
