#include "tools/files/Inputs.h"

#include <fnmatch.h>

#include <algorithm>
#include <filesystem>
#include <iterator>
#include <sstream>
#include <system_error>
#include <unordered_set>

#include "tools/files/Dump.h"
#include "tools/files/OutputFile.h"
#include "tools/text/Escape.h"
#include "tools/text/Terminal.h"

namespace calcut::files {

namespace {

namespace fs = std::filesystem;

std::string sourceOf(const std::string& path) {
    return path == "-" ? path : fs::absolute(path).lexically_normal().string();
}

/// Adds the files below a folder.
void list(const std::string& folder, const std::string& glob,
          const std::vector<std::optional<FileIdentity>>& leftOut, std::vector<Input>& found) {
    std::error_code error;
    fs::directory_iterator entry(folder, error);
    for (; !error && entry != fs::directory_iterator(); entry.increment(error)) {
        const std::string path = entry->path().string();
        const std::string name = entry->path().filename().string();
        std::error_code ignored;
        if (name.front() == '.' ||
            (!leftOut.empty() && std::ranges::count(leftOut, identityOf(path)) > 0)) {
            continue;
        }
        // Links to folders may lead in a circle.
        if (entry->is_directory(ignored) && !entry->is_symlink(ignored)) {
            list(path, glob, leftOut, found);
        } else if (entry->is_regular_file(ignored) && fnmatch(glob.c_str(), name.c_str(), 0) == 0) {
            found.push_back({path, sourceOf(path)});
        }
    }
    if (error) {
        found.push_back({folder, sourceOf(folder), "cannot be listed: " + error.message()});
    }
}

std::vector<std::string> pathsIn(const std::string& listFile) {
    const std::vector<std::uint8_t> bytes = loadDump(listFile);
    std::string list(bytes.begin(), bytes.end());
    if (list.starts_with("\xFF\xFE") || list.starts_with("\xFE\xFF")) {
        throw text::Refused(listFile, "is UTF-16 text; save it as UTF-8");
    }
    if (list.starts_with("\xEF\xBB\xBF")) {
        list.erase(0, 3);
    }
    const bool zeros = list.find('\0') != std::string::npos;
    std::istringstream lines(list);
    std::vector<std::string> paths;
    for (std::string path; std::getline(lines, path, zeros ? '\0' : '\n');) {
        if (!zeros && path.ends_with('\r')) {
            path.pop_back();
        }
        if (!path.empty()) {
            paths.push_back(path);
        }
    }
    return paths;
}

}  // namespace

std::vector<Input> gatherInputs(const InputSources& sources) {
    std::vector<std::optional<FileIdentity>> leftOut;
    for (const std::string& path : sources.leftOut) {
        if (const auto identity = identityOf(path); identity && path != "-") {
            leftOut.push_back(identity);
        }
    }
    std::vector<Input> inputs;
    std::unordered_set<std::string> seen;
    const auto add = [&](const std::string& path) {
        std::vector<Input> found;
        std::error_code ignored;
        if (path == "-" || !fs::is_directory(path, ignored)) {
            found.push_back({path, sourceOf(path)});
        } else {
            list(path, sources.glob, leftOut, found);
        }
        if (found.empty()) {
            found.push_back({path, sourceOf(path),
                             sources.glob == "*"
                                 ? "holds no files"
                                 : "holds no file named " + text::escapePath(sources.glob)});
        }
        std::ranges::sort(found, {}, &Input::path);
        std::ranges::copy_if(found, std::back_inserter(inputs), [&seen](const Input& input) {
            return seen.insert(input.source).second;
        });
    };
    std::ranges::for_each(sources.paths, add);
    if (!sources.filesFrom.empty()) {
        std::ranges::for_each(pathsIn(sources.filesFrom), add);
    }
    return inputs;
}

std::string stemOf(const std::string& path) {
    const std::string stem = path == "-" ? "stdin" : fs::path(path).stem().string();
    return stem.empty() || stem == "." || stem == ".." ? "_" : stem;
}

std::size_t forEachInput(
    const std::vector<Input>& inputs, const std::function<void(const Input& input)>& work,
    const std::function<void(const Input& input, const std::string& reason)>& failed) {
    std::size_t failures = 0;
    for (const Input& input : inputs) {
        if (text::InterruptGuard::interrupted()) {
            break;
        }
        try {
            work(input);
        } catch (const std::exception& error) {
            const auto* refused = dynamic_cast<const text::Refused*>(&error);
            const bool isNamed = refused != nullptr && !refused->subject().empty();
            text::printError(isNamed ? refused->subject() : input.path, text::reasonOf(error));
            ++failures;
            if (failed) {
                failed(input, text::reasonOf(error));
            }
        }
    }
    return failures;
}

}  // namespace calcut::files
