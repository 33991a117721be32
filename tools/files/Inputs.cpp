#include "tools/files/Inputs.h"

#include <fnmatch.h>

#include <algorithm>
#include <filesystem>
#include <sstream>
#include <system_error>
#include <unordered_set>
#include <utility>

#include "tools/files/OutputFile.h"
#include "tools/text/Escape.h"
#include "tools/text/Terminal.h"

namespace calcut::files {

namespace {

namespace fs = std::filesystem;

class Gathering {
  public:
    explicit Gathering(const InputSources& sources) : sources_(sources) {
        for (const std::string& path : sources.leftOut) {
            if (const auto identity = identityOf(path)) {
                leftOut_.push_back(*identity);
            }
        }
    }

    void add(const std::string& path) {
        std::error_code ignored;
        if (path == "-" || !fs::is_directory(path, ignored)) {
            addOnce({path, sourceOf(path)});
            return;
        }
        std::vector<Input> found;
        list(path, found);
        if (found.empty()) {
            found.push_back({path, sourceOf(path),
                             sources_.glob == "*"
                                 ? "holds no files"
                                 : "holds no file named " + text::escapePath(sources_.glob)});
        }
        std::ranges::sort(found, {}, &Input::path);
        std::ranges::for_each(found, [this](Input& input) { addOnce(std::move(input)); });
    }

    std::vector<Input> take() { return std::move(inputs_); }

  private:
    static std::string sourceOf(const std::string& path) {
        return path == "-" ? path : fs::absolute(path).lexically_normal().string();
    }

    void addOnce(Input input) {
        if (seen_.insert(input.source).second) {
            inputs_.push_back(std::move(input));
        }
    }

    [[nodiscard]] bool isLeftOut(const std::string& path) const {
        return !leftOut_.empty() && std::ranges::count(leftOut_, identityOf(path)) > 0;
    }

    void list(const std::string& folder, std::vector<Input>& found) const {
        std::error_code error;
        fs::directory_iterator entry(folder, error);
        for (; !error && entry != fs::directory_iterator(); entry.increment(error)) {
            const std::string path = entry->path().string();
            const std::string name = entry->path().filename().string();
            std::error_code ignored;
            if (name.front() == '.' || isLeftOut(path)) {
                continue;
            }
            // Links to folders may lead in a circle.
            if (entry->is_directory(ignored) && !entry->is_symlink(ignored)) {
                list(path, found);
            } else if (entry->is_regular_file(ignored) &&
                       fnmatch(sources_.glob.c_str(), name.c_str(), 0) == 0) {
                found.push_back({path, sourceOf(path)});
            }
        }
        if (error) {
            found.push_back({folder, sourceOf(folder), "cannot be listed: " + error.message()});
        }
    }

    const InputSources& sources_;
    std::vector<std::optional<FileIdentity>> leftOut_;
    std::unordered_set<std::string> seen_;
    std::vector<Input> inputs_;
};

std::vector<std::string> pathsIn(const std::string& listFile) {
    const std::vector<std::uint8_t> bytes = loadDump(listFile).bytes;
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
    Gathering gathering(sources);
    for (const std::string& path : sources.paths) {
        gathering.add(path);
    }
    if (!sources.filesFrom.empty()) {
        for (const std::string& path : pathsIn(sources.filesFrom)) {
            gathering.add(path);
        }
    }
    return gathering.take();
}

std::string stemOf(const std::string& path) {
    const std::string stem = path == "-" ? "stdin" : fs::path(path).stem().string();
    return stem.empty() || stem == "." || stem == ".." ? "_" : stem;
}

}  // namespace calcut::files
