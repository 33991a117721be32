// calcut cut: dumps into the files of the camera stack.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "tools/files/Dump.h"
#include "tools/module/Layout.h"

namespace calcut::cut {

struct CutOptions {
    /// Dumps, and folders of them with out; without out one dump ("-" for standard input) and its
    /// directory, or one dump with verify.
    std::vector<std::string> paths;
    std::optional<module::Layout> layout;  ///< by their first bytes when not set
    std::uint64_t maxSize = files::defaultMaxSize;
    bool force = false;   ///< also over what belongs to another dump
    bool strict = false;  ///< warnings make the exit status 1, too

    std::string out;        ///< a directory for each dump comes under this one
    std::string filesFrom;  ///< file with a path on each line, "-" for standard input
    std::string glob = "*";
    std::string report;  ///< *.csv or *.json
    unsigned jobs = 0;   ///< 0: one for each processor
    bool resume = false;

    std::string verify;  ///< the directory to compare with the dump
};

/// What is wrong with the options among themselves; empty when nothing is.
std::string usageFault(const CutOptions& options);

/// Cuts, or compares. Returns the exit status.
int runCut(const CutOptions& given);

}  // namespace calcut::cut
