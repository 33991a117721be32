// Which dumps a batch takes, and the names of their folders.
#pragma once

#include <vector>

#include "tools/cut/Cut.h"
#include "tools/cut/StackFiles.h"

namespace calcut::cut {

/// Takes the paths apart: lists, folders (all that is below and matches the glob, without hidden
/// files and what is under out), in the order given, those of a folder sorted. A path that is given
/// twice counts once. Throws Refused for a list or a folder that holds nothing.
///
/// They are results that were not reached yet, with their paths. A dump's folder is the one under
/// out that holds its cut already, or else named after the dump, without the extension; equal names
/// are told apart by the names of the folders the dumps are in.
std::vector<CutResult> gatherInputs(const CutOptions& options);

}  // namespace calcut::cut
