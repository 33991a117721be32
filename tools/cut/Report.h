// The report of many cuts, which grows row by row.
#pragma once

#include <cstddef>
#include <span>
#include <string>

#include "tools/cut/StackFiles.h"

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

    /// Starts the file; an earlier one is replaced. Throws Refused. Without it nothing is written.
    void open(const std::string& path);
    /// Appends rows with one write. The first failure is told, the rest are quiet.
    void add(std::span<const CutResult> results);
    /// Closes the file. False when not everything could be written.
    bool close();

  private:
    /// Returns errno, or 0 for success.
    int put(const std::string& text);
    void tell(int error);

    std::string path_;
    int descriptor_ = -1;
    bool json_ = false;
    bool failed_ = false;
    std::size_t rows_ = 0, cut_ = 0, failedRows_ = 0;
};

}  // namespace calcut::tools
