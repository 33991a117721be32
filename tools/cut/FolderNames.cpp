#include "tools/cut/FolderNames.h"

#include <filesystem>
#include <map>
#include <set>
#include <utility>

#include <fmt/format.h>

#include "tools/cut/Folder.h"

namespace calcut::cut {

namespace {

namespace fs = std::filesystem;

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

}  // namespace

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

}  // namespace calcut::cut
