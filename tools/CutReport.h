// What calcut cut tells about many dumps: a table for people, CSV or JSON for programs.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "DumpCutter.h"

namespace calcut::tools {

/// One dump of many and what came of it.
struct CutRow {
    std::string dump;
    CutResult result;
    bool reached = false;  ///< false for those that an interrupt left over
};

enum class ReportFormat { Csv, Json };

/// file,layout,result,reason,masked pixels,fx,fy,cx,cy in CSV (RFC 4180), or the same as keys
/// file, layout, result, reason, maskedPixels, fx, fy, cx, cy in JSON. Values of dumps that were
/// not cut are empty and null. Floats read back to the same value.
std::string renderReport(const std::vector<CutRow>& rows, ReportFormat format);

/// The table; above listAll dumps only those that failed, and the totals.
std::string renderSummary(const std::vector<CutRow>& rows, double seconds);

}  // namespace calcut::tools
