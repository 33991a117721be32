// The report of many cuts, which grows row by row, and the summary at their end.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "tools/cut/CutResult.h"

namespace calcut::tools {

/// A report file, CSV (RFC 4180) or JSON by its extension. Whatever ends the process, the file
/// holds whole rows; the JSON is one complete object after every row.
class Report {
  public:
    Report() = default;
    Report(const Report&) = delete;
    Report& operator=(const Report&) = delete;
    ~Report();

    static bool supports(const std::string& path);

    /// Starts the file; an earlier one is replaced. False, with a printed error, when it cannot.
    bool open(const std::string& path);
    /// Appends rows with one write. The first failure is told, the rest are quiet.
    void add(const CutResult* first, std::size_t count);
    /// Closes the file. False when not everything could be written.
    bool close();

  private:
    void put(const std::string& text);

    std::string path_;
    int descriptor_ = -1;
    bool json_ = false;
    bool failed_ = false;
    std::uint64_t end_ = 0;  ///< behind the last row
    std::size_t rows_ = 0, cut_ = 0, failedRows_ = 0;
};

/// A table for people (above 50 dumps only of those that failed) and the totals, fit to a terminal
/// of that width (0: none).
std::string summary(const std::vector<CutResult>& results, double seconds, std::size_t width);

}  // namespace calcut::tools
