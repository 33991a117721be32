// Where the files of a cut go: written aside, checked, then moved into place, so that whatever goes
// wrong leaves the earlier files whole and never those of two modules side by side.
#pragma once

#include <cstddef>
#include <span>
#include <string>

#include "tools/cut/StackFiles.h"
#include "tools/files/Dump.h"
#include "tools/module/Tree.h"

namespace calcut::cut {

/// Version of the keys of cut.json and of the report.
inline constexpr int cutSchema = 2;

/// Writes the files of a taken dump aside and moves them into an existing directory, where either
/// all of them replace an earlier cut or everything stays as it was. Unless forced, nothing that
/// looks like a dump is replaced. Without a word to anyone, also for the Python module. Throws
/// Refused with the path that it is about: the directory or the dump.
void cutInto(const TakenDump& taken, const std::string& directory, bool force, CutResult& result);

/// Gives the files of a taken dump, with a note whose they are, to its own folder, result.folder,
/// in one step where the file system can. What is there must be empty or an earlier cut of the same
/// dump (forced: of any), with nothing else in it and no dump; a whole cut of that very dump is
/// kept when resuming. reads are all dumps; number tells apart those of one process. Throws
/// Refused, and leaves the folder as it was.
void cutToFolder(const TakenDump& taken, std::span<const files::FileIdentity> reads,
                 std::size_t number, const CutOptions& options, CutResult& result);

/// The note in a folder, cut.json, with a source at least; an empty object when there is none.
text::Json noteIn(const std::string& folder);

/// Why a directory takes no files; empty when it does.
std::string whyNoOutput(const std::string& directory);

/// Whether any file of a cut is in a directory.
bool holdsAnyCut(const std::string& directory);

/// What a refusal goes on with when an earlier cut stays where it is.
std::string earlierCutIn(const std::string& folder);

}  // namespace calcut::cut
