// The names of the folders of a batch.
#pragma once

#include <string>
#include <vector>

#include "tools/cut/StackFiles.h"

namespace calcut::cut {

/// Names the folder of each dump: the one under out that holds its cut already, or else one that is
/// called as the dump, without the extension; equal names are told apart by the names of the
/// folders the dumps are in.
void nameFolders(std::vector<CutResult>& inputs, const std::string& out);

}  // namespace calcut::cut
