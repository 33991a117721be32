// What is told of many cuts: the report, which grows row by row, and at the end a table.
#pragma once

#include <cstddef>
#include <span>
#include <string>

#include "tools/cut/StackFiles.h"
#include "tools/files/Temporary.h"

namespace calcut::cut {

/// A row of the report, in JSON and as a line of CSV (RFC 4180).
std::string jsonRow(const CutResult& result);
std::string csvRow(const CutResult& result);

/// A report file, CSV or JSON by its extension; "-" is CSV on standard output. Whatever ends the
/// process, the file holds whole rows; the JSON is one complete object after every row.
class Report {
  public:
    static bool supports(const std::string& path);

    /// Whether nothing of anybody else is lost when a report takes that path: nothing is there, or
    /// an earlier report.
    static bool isFree(const std::string& path);

    /// Starts the file; an earlier one is replaced. Throws Refused, also while another command
    /// writes it. Without it nothing is written.
    void open(const std::string& path);
    /// Appends rows with one write. The first failure is told, the rest are quiet.
    void add(std::span<const CutResult> results);
    /// Closes the file. False when not everything could be written.
    bool close();

  private:
    struct Totals {
        std::size_t rows = 0, good = 0, failed = 0;
    };

    /// Writes the text of rows, which make these totals. Returns errno, or 0 for success.
    int put(std::string text, const Totals& totals);
    void tell(int error);

    std::string path_;
    files::FileDescriptor file_;
    bool json_ = false;
    bool failed_ = false;
    Totals totals_;
};

/// A table for people (above 50 dumps only of those that failed) and the totals, as standard output
/// takes them.
std::string summary(std::span<const CutResult> results, double seconds);

}  // namespace calcut::cut
