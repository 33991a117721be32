// calcut cut: dumps into the files of the camera stack.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "tools/module/Layout.h"

namespace calcut::cut {

struct CutOptions {
    /// Dumps, and folders of them with out; without out one dump ("-" for standard input) and its
    /// directory.
    std::vector<std::string> paths;
    module::Reading reading;
    bool force = false;   ///< also over what belongs to another dump
    bool strict = false;  ///< warnings make the exit status 1, too

    std::string out;        ///< a directory for each dump comes under this one
    std::string filesFrom;  ///< file with a path on each line, "-" for standard input
    std::string glob = "*";
    std::string name;    ///< template of the directories' names; empty: after the dumps
    std::string report;  ///< *.csv or *.json, "-" for CSV on standard output
    unsigned jobs = 0;   ///< 0: one for each processor
    bool resume = false;

    bool verify = false;  ///< only compare what is there with the dumps
};

/// What is wrong with the options among themselves; nothing when nothing is.
std::optional<std::string> usageFault(const CutOptions& options);

/// Cuts, or compares. Returns the exit status.
int runCut(const CutOptions& given);

/// The same for the form with out.
int cutMany(const CutOptions& options);

}  // namespace calcut::cut
