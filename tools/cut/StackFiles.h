// From a dump to the files of the stack, through the library's own cutters.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "tools/cut/Cut.h"
#include "tools/cut/CutResult.h"
#include "tools/dump/Diagnosis.h"
#include "tools/dump/Dump.h"

namespace calcut::tools {

/// A dump in memory that can be cut.
struct TakenDump {
    Dump dump;
    Diagnosis diagnosis;  ///< its views point into dump
};

/// Loads a dump and looks at it, and stores what was found out in result. Nothing when it cannot be
/// cut; result then is a failure.
std::optional<TakenDump> takeDump(const std::string& path, const CutOptions& options,
                                  CutResult& result);

/// A file as it has to be.
struct StackFile {
    const char* name;
    ByteView bytes;  ///< of the dump or the record
};
std::vector<StackFile> filesOf(const TakenDump& taken);

/// How a directory differs from what it should hold.
struct Difference {
    std::string file;
    std::string what;  ///< "differs at byte 17 (0x11)", "is missing", ...
};
/// Compares the files of a cut byte for byte; files that have nothing to do with a cut are not
/// looked at. Opens nothing that could block.
std::vector<Difference> differences(const std::vector<StackFile>& files,
                                    const std::string& directory);

/// Writes the files into an empty directory and reads them back. result gets the number of masked
/// pixels, or fails.
void writeStackFiles(const TakenDump& taken, const std::string& directory, CutResult& result);

}  // namespace calcut::tools
