// A dump's files into a directory, without a word to anyone: for calcut cut and the Python module.
#pragma once

#include <string>

#include "tools/cut/CutResult.h"
#include "tools/cut/StackFiles.h"

namespace calcut::tools {

/// Writes the files of a taken dump aside and moves them into an existing directory, where either
/// all of them replace an earlier cut or everything stays as it was. Unless forced, nothing that
/// looks like a dump is replaced. result is Cut, or fails with its reason. Returns the path that a
/// failure is about: the directory or the dump.
std::string cutInto(const TakenDump& taken, const std::string& directory, bool force,
                    CutResult& result);

}  // namespace calcut::tools
