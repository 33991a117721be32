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

/// Texts of the error lines since the last call, without their line ends; forgets all lines.
std::vector<std::string> takeErrors();

}  // namespace recording
