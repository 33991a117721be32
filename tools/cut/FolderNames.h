// The names of the folders of a batch.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "tools/cut/StackFiles.h"

namespace calcut::cut {

/// Names the folder of each dump that has not failed: the one under out that holds its cut already,
/// or else one that is called as the dump, without the extension; equal names are told apart by the
/// names of the folders the dumps are in.
void nameFolders(std::vector<CutResult>& inputs, const std::string& out);

/// What is wrong with a template of names ("{serial}-{stem}"); nothing when nothing is.
std::optional<std::string> templateFault(std::string_view pattern);

/// Whether a template names what only the dump itself tells.
bool needsDump(std::string_view pattern);

/// The name of a dump's folder after a template. Bytes that a file system or a shell might object
/// to are replaced. Throws Refused when the dump has nothing for a field, or no name is left.
std::string nameFrom(std::string pattern, const CutResult& result);

}  // namespace calcut::cut
