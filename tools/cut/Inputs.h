// Which dumps a batch takes, and the names of their folders.
#pragma once

#include <string>
#include <vector>

#include "tools/cut/Cut.h"

namespace calcut::tools {

struct Input {
    std::string dump;    ///< path as given
    std::string source;  ///< its absolute path
    std::string folder;  ///< its name under out
};

/// Takes the paths apart: lists, folders (all that is below and matches the glob, without hidden
/// files and what is under out), in the order given, those of a folder sorted. A path that is given
/// twice counts once. Throws Refused for a list or a folder that holds nothing.
///
/// A dump's folder is the one under out that holds its cut already, or else named after the dump,
/// without the extension; equal names are told apart by the names of the folders the dumps are in.
std::vector<Input> gatherInputs(const CutOptions& options);

}  // namespace calcut::tools
