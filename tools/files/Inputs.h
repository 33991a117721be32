// Which files a subcommand reads: paths, folders and lists taken apart.
#pragma once

#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace calcut::files {

/// Where inputs are named.
struct InputSources {
    std::vector<std::string> paths;      ///< files and folders; "-" is standard input
    std::string filesFrom{};             ///< a file that lists more of them; empty: none
    std::string glob = "*";              ///< of folders, take only files of such a name
    std::vector<std::string> leftOut{};  ///< what is written, and therefore not found in folders
};

struct Input {
    std::string path;                      ///< as given, or below a given folder
    std::string source{};                  ///< the absolute path; "-" for standard input
    std::optional<std::string> refusal{};  ///< why there is nothing to read: an empty folder, ...
};

/// The inputs in the order given, those of a folder sorted. Of folders, everything below is taken
/// that matches the glob, but hidden files and folders are not. A path that is given twice counts
/// once. A folder that is empty or cannot be listed is an input with its reason. A list holds one
/// path on each line, or between zero bytes; Refused is thrown when it cannot be read.
std::vector<Input> gatherInputs(const InputSources& sources);

/// The name of a path without its extension, fit for a file or folder: "_" where that would be
/// empty or lead elsewhere (".", ".."), "stdin" for "-".
std::string stemOf(const std::string& path);

/// Calls work for each input until a signal that an InterruptGuard notes. What work throws is
/// printed, with the input's path where it names none, and handed to failed. Returns how often
/// that was.
std::size_t forEachInput(
    const std::vector<Input>& inputs, const std::function<void(const Input& input)>& work,
    const std::function<void(const Input& input, const std::string& reason)>& failed = {});

}  // namespace calcut::files
