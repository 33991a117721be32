// Where the files of a cut go: written aside, checked, then moved into place, so that whatever goes
// wrong leaves the earlier files whole and never those of two modules side by side. What is there
// is looked at before it goes, and once more when it has been moved away.
#pragma once

#include <span>
#include <string>

#include "tools/cut/StackFiles.h"
#include "tools/files/OutputFile.h"

namespace calcut::cut {

/// Writes the files of a taken dump aside and moves them into an existing directory, where either
/// all of them replace an earlier cut or everything stays as it was. Unless forced, nothing that
/// looks like a dump is replaced. Throws Refused with the path that it is about: the directory or
/// the dump.
void cutInto(const TakenDump& taken, const std::string& directory, bool force, CutResult& result);

/// Gives the files of a taken dump, with a note whose they are, to its own folder, result.folder,
/// in one step where the file system can. What is there must be empty or an earlier cut of the same
/// dump (forced: of any), with nothing else in it and no dump; a whole cut of that very dump is
/// kept when resuming. reads are all dumps. The caller has the lock of options.out. Throws Refused,
/// and leaves the folder as it was.
void cutToFolder(const TakenDump& taken, std::span<const files::FileIdentity> reads,
                 const CutOptions& options, CutResult& result);

/// Throws Refused unless a path is a directory that takes files.
void checkDirectory(const std::string& directory);

/// Whether any file of a cut is in a directory.
bool holdsAnyCut(const std::string& directory);

/// What a refusal goes on with when an earlier cut stays where it is.
std::string earlierCutIn(const std::string& folder);

/// Removes what dead runs left in a directory. Earlier cuts among it stay, with a warning, unless a
/// newer one has superseded them.
void removeLeftovers(const std::string& directory, bool superseded);

}  // namespace calcut::cut
