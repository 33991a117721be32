// calcut compare: how two modules differ.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "tools/module/Diagnosis.h"
#include "tools/module/Layout.h"

namespace calcut::compare {

/// Beside exitOk for equal modules and exitFailed for different ones: neither can be told.
inline constexpr int exitNotCompared = 2;

struct CompareOptions {
    std::string a;  ///< dumps or bare calibrations; one of them may be "-"
    std::string b;
    std::string output;                    ///< *.png, *.svg or *.pdf; empty for none
    std::optional<module::Layout> layout;  ///< of both; by their first bytes when not set
    std::uint64_t maxSize = files::defaultMaxSize;
    std::optional<double> tolerance;
    bool json = false;
};

/// Makes the picture for options.output. Throws Refused when it cannot.
using DrawDifferences = std::vector<std::uint8_t> (*)(const module::Diagnosis& a,
                                                      const module::Diagnosis& b,
                                                      const CompareOptions& options);

/// Prints how two modules differ, and draws it where an output is named. Returns the exit status.
int runCompare(const CompareOptions& options, DrawDifferences draw);

}  // namespace calcut::compare
