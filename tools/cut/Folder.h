// Where the files of a cut go: written aside, checked, then moved into place, so that whatever goes
// wrong leaves the earlier files whole and never those of two modules side by side.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "tools/cut/CutJson.h"
#include "tools/dump/Dump.h"

namespace calcut::tools {

/// The note in each folder of many cuts.
inline constexpr const char* ownerFile = "cut.json";

/// A new hidden folder that goes away, with the files of a cut in it, with the object.
class TemporaryFolder {
  public:
    /// number tells apart those of one process.
    TemporaryFolder(const std::string& parent, std::size_t number);
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;
    ~TemporaryFolder();

    [[nodiscard]] const std::string& path() const { return path_; }
    /// Why it could not be made; empty when it is there.
    [[nodiscard]] const std::string& error() const { return error_; }
    /// It stays, because it holds what must not be lost.
    void keep() { kept_ = true; }

  private:
    std::string path_;
    std::string error_;
    bool kept_ = false;
};

// All of these return why not, or nothing for success.

/// Whether a directory takes files.
std::string whyNoOutput(const std::string& directory);

/// Whether the files of a single cut may go into a directory: none of them is an input, anything
/// but a regular file, or (unless forced) a dump itself.
std::string whyNotInto(const std::string& directory, const std::vector<FileIdentity>& inputs,
                       bool force);

/// Moves the files of a single cut from a temporary folder inside the directory into it. Earlier
/// ones leave before the first new one comes; all come back when something fails.
std::string moveFiles(TemporaryFolder& temporary, const std::string& directory);

/// Whether a dump's folder may be made or replaced: there is none, or an earlier cut of the same
/// dump (forced: of any), with nothing else in it and no input.
std::string whyNotFolder(const std::string& folder, const Owner& owner,
                         const std::vector<FileIdentity>& inputs, bool force);

/// Gives the temporary folder that name, in one step where the file system can.
std::string moveFolder(TemporaryFolder& temporary, const std::string& folder);

/// The note in a folder, when there is one.
std::optional<Owner> readOwner(const std::string& folder);
std::string writeOwner(const std::string& folder, const Owner& owner);

/// Whether a folder holds the whole cut of that very dump.
bool holdsWholeCut(const std::string& folder, const Owner& earlier, const Owner& dump);

/// Whether any file of a cut is in a directory.
bool holdsAnyCut(const std::string& directory);

}  // namespace calcut::tools
