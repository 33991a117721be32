#include "tools/cut/Inputs.h"

#include <fnmatch.h>

#include <algorithm>
#include <filesystem>
#include <map>
#include <set>
#include <system_error>
#include <unordered_set>

#include <fmt/format.h>

#include "tools/cut/Folder.h"

namespace calcut::tools {

namespace {

namespace fs = std::filesystem;

// Files of a folder; false when it cannot be read.
bool addFolder(const std::string& folder, const CutOptions& options,
               std::vector<std::string>& dumps, std::string& reason) {
    std::error_code error;
    std::vector<std::string> found;
    fs::recursive_directory_iterator entry(folder, error);
    for (; !error && entry != fs::recursive_directory_iterator(); entry.increment(error)) {
        const std::string name = entry->path().filename().string();
        std::error_code ignored;
        const bool hidden = name.front() == '.';
        if (entry->is_directory(ignored)) {
            if (hidden || fs::equivalent(entry->path(), options.out, ignored)) {
                entry.disable_recursion_pending();
            }
        } else if (!hidden && entry->is_regular_file(ignored) &&
                   fnmatch(options.glob.c_str(), name.c_str(), 0) == 0) {
            found.push_back(entry->path().string());
        }
    }
    std::sort(found.begin(), found.end());
    dumps.insert(dumps.end(), found.begin(), found.end());
    reason = error                                  ? error.message()
             : found.empty() && options.glob != "*" ? "holds no file named " + options.glob
             : found.empty()                        ? "holds no files"
                                                    : "";
    return reason.empty();
}

// One path a line, or between zero bytes where there is one.
std::vector<std::string> pathsIn(const std::vector<std::uint8_t>& list) {
    const bool zeros = std::find(list.begin(), list.end(), 0) != list.end();
    std::vector<std::string> paths;
    std::string path;
    const auto take = [&] {
        if (!zeros && !path.empty() && path.back() == '\r') {
            path.pop_back();
        }
        if (!path.empty()) {
            paths.push_back(path);
        }
        path.clear();
    };
    for (const std::uint8_t byte : list) {
        if (byte == (zeros ? 0 : '\n')) {
            take();
        } else {
            path += static_cast<char>(byte);
        }
    }
    take();
    return paths;
}

// What a dump's folder may be called, from the shortest name on.
std::vector<std::string> candidates(const fs::path& source) {
    std::string stem = source.stem().string();
    std::string name = source.filename().string();
    std::vector<std::string> names = {stem};
    for (fs::path folder = source.parent_path(); folder.has_relative_path();
         folder = folder.parent_path()) {
        const std::string parent = folder.filename().string() + "-";
        stem.insert(0, parent);
        name.insert(0, parent);
        names.push_back(stem);
        names.push_back(name);
    }
    if (names.size() == 1) {
        names.push_back(name);
    }
    return names;
}

class Namer {
  public:
    Namer(const Inputs& inputs, const std::string& out)
        : sources_(inputs.sources), names_(sources_.size()), levels_(sources_.size(), 0) {
        std::error_code ignored;
        if (fs::exists(out, ignored) && !fs::is_empty(out, ignored)) {
            keepOld(out);
        }
    }

    std::vector<std::string> names() {
        while (tellApart()) {
        }
        for (std::size_t i = 0; i < names_.size(); ++i) {
            const std::string name = names_[i].empty() ? candidate(i) : names_[i];
            names_[i] = name;
            // Two dumps whose whole paths come to the same name.
            for (int number = 2; owned_[i] == 0 && !taken_.insert(names_[i]).second; ++number) {
                names_[i] = name + "-" + std::to_string(number);
            }
        }
        return names_;
    }

  private:
    [[nodiscard]] std::string candidate(std::size_t i) const {
        return candidates(sources_[i])[levels_[i]];
    }

    // Folders that an earlier run made for the same dumps.
    void keepOld(const std::string& out) {
        constexpr std::size_t looked = 3;
        for (std::size_t i = 0; i < sources_.size(); ++i) {
            std::vector<std::string> known = candidates(sources_[i]);
            known.resize(std::min(known.size(), looked));
            for (const std::string& name : known) {
                const auto owner = readOwner(fmt::format("{}/{}", out, name));
                if (owner && owner->source == sources_[i] && taken_.insert(name).second) {
                    names_[i] = name;
                    owned_[i] = 1;
                    break;
                }
            }
        }
    }

    // Takes one more step for all of a name; false when nobody can or needs to.
    bool tellApart() {
        std::map<std::string, std::vector<std::size_t>> groups;
        for (std::size_t i = 0; i < names_.size(); ++i) {
            if (owned_[i] == 0) {
                groups[candidate(i)].push_back(i);
            }
        }
        bool changed = false;
        for (const auto& [name, members] : groups) {
            if (members.size() == 1 && taken_.count(name) == 0) {
                continue;
            }
            for (const std::size_t i : members) {
                if (levels_[i] + 1 < candidates(sources_[i]).size()) {
                    ++levels_[i];
                    changed = true;
                }
            }
        }
        return changed;
    }

    const std::vector<std::string>& sources_;
    std::vector<std::string> names_;
    std::vector<std::size_t> levels_;
    std::vector<char> owned_ = std::vector<char>(sources_.size(), 0);
    std::set<std::string> taken_;
};

}  // namespace

Inputs gatherInputs(const CutOptions& options) {
    Inputs inputs;
    std::vector<std::string> paths = options.paths;
    if (!options.filesFrom.empty()) {
        const Dump list = loadDump(options.filesFrom);
        if (!list.error.empty()) {
            inputs.subject = options.filesFrom;
            inputs.error = list.error;
            return inputs;
        }
        const std::vector<std::string> listed = pathsIn(list.bytes);
        paths.insert(paths.end(), listed.begin(), listed.end());
    }
    std::vector<std::string> dumps;
    for (const std::string& path : paths) {
        std::error_code ignored;
        if (path == "-") {
            inputs.error = "is cut with calcut cut - OUTDIR, not with --out";
            inputs.subject = "standard input";
            return inputs;
        }
        if (!fs::is_directory(path, ignored)) {
            dumps.push_back(path);
        } else if (!addFolder(path, options, dumps, inputs.error)) {
            inputs.subject = path;
            return inputs;
        }
    }
    std::unordered_set<std::string> seen;
    for (const std::string& dump : dumps) {
        const std::string source = fs::absolute(dump).lexically_normal().string();
        if (seen.insert(source).second) {
            inputs.dumps.push_back(dump);
            inputs.sources.push_back(source);
        }
    }
    inputs.folders = Namer(inputs, options.out).names();
    return inputs;
}

}  // namespace calcut::tools
