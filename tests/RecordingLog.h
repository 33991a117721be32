// A stand-in for the log: keeps what every destroyed SkarLog had collected.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include "cutter/SkarLog.h"

namespace recording {

using Line = std::pair<skarbo::logtype, std::string>;

/// Lines since the last call, and forgets them. Each ends with a line feed.
std::vector<Line> takeLines();

/// Texts of the error lines among them, without their line ends.
std::vector<std::string> errorsIn(const std::vector<Line>& all);

inline std::vector<std::string> takeErrors() {
    return errorsIn(takeLines());
}

}  // namespace recording
