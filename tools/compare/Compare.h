// calcut compare: how two modules differ, or how many differ from one.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "tools/compare/Comparison.h"
#include "tools/module/Diagnosis.h"

namespace calcut::compare {

/// Beside exitOk for equal modules and exitFailed for different ones: neither can be told.
inline constexpr int exitNotCompared = 2;

struct CompareOptions {
    /// Dumps or bare calibrations, "-" for standard input: A and B, or with `to` any number of B,
    /// folders too.
    std::vector<std::string> paths;
    std::string to;      ///< A of many comparisons; empty for one
    std::string report;  ///< CSV with a row for each of them; empty for none
    bool force = false;  ///< replace a file that is no earlier report
    std::string output;  ///< *.png, *.svg or *.pdf; empty for none
    module::Reading reading;
    Tolerances tolerances;
    bool json = false;
};

/// What is wrong with a combination of options, or nothing.
std::optional<std::string> usageFault(const CompareOptions& options);

/// Makes the picture for options.output. Throws Refused when it cannot.
using DrawDifferences = std::vector<std::uint8_t> (*)(const module::Diagnosis& a,
                                                      const module::Diagnosis& b,
                                                      const CompareOptions& options);

/// Prints how modules differ, and draws it where an output is named. Returns the exit status.
int runCompare(const CompareOptions& options, DrawDifferences draw);

}  // namespace calcut::compare
