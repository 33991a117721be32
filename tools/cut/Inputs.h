// Which dumps a batch takes, and the names of their folders.
#pragma once

#include <string>
#include <vector>

#include "tools/cut/Cut.h"

namespace calcut::tools {

struct Inputs {
    std::vector<std::string> dumps;    ///< in the order given, those of a folder sorted
    std::vector<std::string> sources;  ///< their absolute paths
    std::vector<std::string> folders;  ///< their names under out
    std::string subject, error;        ///< why there are none
};

/// Takes the paths apart: lists, folders (all that is below and matches the glob, without hidden
/// files and what is under out). A path that is given twice counts once.
///
/// A dump's folder is the one under out that holds its cut already, or else named after the dump,
/// without the extension; equal names are told apart by the names of the folders the dumps are in.
Inputs gatherInputs(const CutOptions& options);

}  // namespace calcut::tools
