#include "tools/cut/Inputs.h"

#include <fnmatch.h>

#include <algorithm>
#include <filesystem>
#include <map>
#include <set>
#include <sstream>
#include <system_error>
#include <unordered_set>

#include <fmt/format.h>

#include "tools/cut/Folder.h"
#include "tools/text/Terminal.h"

namespace calcut::cut {

namespace {

namespace fs = std::filesystem;

std::vector<std::string> filesIn(const std::string& folder, const CutOptions& options) {
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
    text::refuseFor(folder, error ? error.message() : std::string());
    if (found.empty()) {
        throw text::Refused(
            folder, options.glob != "*" ? "holds no file named " + options.glob : "holds no files");
    }
    std::ranges::sort(found);
    return found;
}

// One path a line, or between zero bytes where there is one.
std::vector<std::string> pathsIn(const std::string& list) {
    const bool zeros = list.find('\0') != std::string::npos;
    std::istringstream text(list);
    std::vector<std::string> paths;
    for (std::string path; std::getline(text, path, zeros ? '\0' : '\n');) {
        if (!zeros && path.ends_with('\r')) {
            path.pop_back();
        }
        if (!path.empty()) {
            paths.push_back(path);
        }
    }
    return paths;
}

// What a dump's folder may be called, from the shortest name on: its stem; then, behind the names
// of one more folder each time, its stem and its whole name. Empty when there is no more.
std::string candidate(const fs::path& source, std::size_t level) {
    const fs::path last = level % 2 == 0 && level > 0 ? source.filename() : source.stem();
    std::string name = last.string();
    fs::path folder = source.parent_path();
    for (std::size_t above = (level + 1) / 2; above > 0; --above) {
        if (!folder.has_relative_path()) {
            return level == 1 ? source.filename().string() : std::string();
        }
        name.insert(0, folder.filename().string() + "-");
        folder = folder.parent_path();
    }
    return name;
}

// The name of the folder that an earlier run made for the same dump; empty when there is none.
std::string earlierName(const std::string& source, const std::string& out) {
    constexpr std::size_t looked = 3;
    for (std::size_t level = 0; level < looked; ++level) {
        std::string name = candidate(source, level);
        if (!name.empty() &&
            noteIn((fs::path(out) / name).string()).value("source", "") == source) {
            return name;
        }
    }
    return {};
}

void nameFolders(std::vector<CutResult>& inputs, const std::string& out) {
    std::set<std::string> taken;
    std::vector<std::pair<CutResult*, std::size_t>> unnamed;  // with their levels
    for (CutResult& input : inputs) {
        input.folder = earlierName(input.source, out);
        if (!input.folder.empty()) {
            taken.insert(input.folder);
            continue;
        }
        input.folder = candidate(input.source, 0);
        unnamed.emplace_back(&input, 0);
    }
    for (bool changed = true; changed;) {
        changed = false;
        std::map<std::string, std::size_t> uses;
        for (const CutResult& input : inputs) {
            ++uses[input.folder];
        }
        for (auto& [input, level] : unnamed) {
            const bool alone = uses[input->folder] == 1;
            const std::string next = alone ? "" : candidate(input->source, level + 1);
            if (!next.empty()) {
                input->folder = next;
                ++level;
                changed = true;
            }
        }
    }
    for (auto& [input, level] : unnamed) {
        const std::string name = input->folder;
        // Two dumps whose whole paths come to the same name.
        for (int number = 2; !taken.insert(input->folder).second; ++number) {
            input->folder = fmt::format("{}-{}", name, number);
        }
    }
    for (CutResult& input : inputs) {
        input.folder = out + "/" + input.folder;
    }
}

}  // namespace

std::vector<CutResult> gatherInputs(const CutOptions& options) {
    std::vector<std::string> paths = options.paths;
    if (!options.filesFrom.empty()) {
        const files::Dump list = files::loadDump(options.filesFrom);
        text::refuseFor(options.filesFrom, list.error);
        std::ranges::copy(pathsIn({list.bytes.begin(), list.bytes.end()}),
                          std::back_inserter(paths));
    }
    std::vector<CutResult> inputs;
    std::unordered_set<std::string> seen;
    for (const std::string& path : paths) {
        if (path == "-") {
            throw text::Refused("standard input",
                                "is cut with calcut cut - OUTDIR, not with --out");
        }
        std::error_code ignored;
        const bool isFolder = fs::is_directory(path, ignored);
        for (const std::string& dump : isFolder ? filesIn(path, options) : std::vector{path}) {
            const std::string source = fs::absolute(dump).lexically_normal().string();
            if (seen.insert(source).second) {
                inputs.emplace_back().dump = dump;
                inputs.back().source = source;
            }
        }
    }
    nameFolders(inputs, options.out);
    return inputs;
}

}  // namespace calcut::cut
