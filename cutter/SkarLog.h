#pragma once

#include <cstdint>
#include <string>

namespace skarbo {

enum logtype : std::int32_t { info = 1, debug = 2, warning = 3, error = 4 };

/// Collects the text of one log line. Destruction discards it: only showLog sends it anywhere.
class SkarLog {
  public:
    SkarLog();
    explicit SkarLog(logtype type);
    SkarLog(const SkarLog&) = delete;
    SkarLog& operator=(const SkarLog&) = delete;
    /// Ends the line. Never throws: the room for it is there.
    ~SkarLog();

    SkarLog& operator<<(std::string text);

    /// Sends what has been collected so far to the system log under the tag "__SKARBO__ "; where
    /// there is no Android log, to the standard error stream.
    void showLog();

  private:
    logtype type_;
    std::string text_;
};

/// Android log priority of a log type; 1 (default) for values outside the enumeration.
int getLogLevel(logtype type);

}  // namespace skarbo

using skarbo::getLogLevel;
