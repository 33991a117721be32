#include "tools/cut/FolderNames.h"

#include <algorithm>
#include <array>
#include <filesystem>
#include <map>
#include <set>
#include <utility>

#include <fmt/format.h>

#include "tools/cut/Note.h"
#include "tools/files/Inputs.h"
#include "tools/text/Escape.h"

namespace calcut::cut {

namespace {

namespace fs = std::filesystem;

// What a dump's folder may be called, from the shortest name on: its stem; then, behind the names
// of one more folder each time, its stem and its whole name. Empty when there is no more.
std::string candidate(const fs::path& source, std::size_t level) {
    const bool whole = level % 2 == 0 && level > 0;
    std::string name = whole ? source.filename().string() : files::stemOf(source.string());
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
        if (!name.empty() && isCutOf((fs::path(out) / name).string(), source)) {
            return name;
        }
    }
    return {};
}

// --------------------------------------------------------------------------------- templates --

// "l1/night/m.bin" is "l1-night-m".
std::string pathField(const CutResult& result) {
    std::string name;
    for (const fs::path& part : fs::path(result.dump).parent_path().lexically_normal()) {
        if (part.has_filename() && part != "." && part != "..") {
            name += part.string() + "-";
        }
    }
    return name + files::stemOf(result.dump);
}

struct Field {
    std::string_view word;
    bool fromDump;
    std::string (*of)(const CutResult& result);
};

constexpr std::array<Field, 7> nameFields = {{
    {"{stem}", false, [](const CutResult& r) { return files::stemOf(r.dump); }},
    {"{path}", false, pathField},
    {"{serial}", true, [](const CutResult& r) { return r.texts[2]; }},
    {"{text0}", true, [](const CutResult& r) { return r.texts[0]; }},
    {"{text1}", true, [](const CutResult& r) { return r.texts[1]; }},
    {"{text2}", true, [](const CutResult& r) { return r.texts[2]; }},
    {"{id}", true, [](const CutResult& r) { return text::hexText(r.idBytes); }},
}};

// A name that every file system takes, and that hides nothing.
std::string sanitised(std::string_view text) {
    std::string name = text::escapePath(text);
    for (char& c : name) {
        c = c == '/' ? '-' : std::string_view("\\:*?\"<>|").find(c) == std::string::npos ? c : '_';
    }
    name.erase(0, name.find_first_not_of(' '));
    name.erase(name.find_last_not_of(' ') + 1);
    if (name.starts_with('.') || name.starts_with('-')) {
        name[0] = '_';
    }
    return name;
}

}  // namespace

std::optional<std::string> templateFault(std::string_view pattern) {
    if (pattern.find('/') != std::string_view::npos) {
        return "--name is the name of one folder, without /";
    }
    std::string words;
    for (const Field& field : nameFields) {
        words += fmt::format(" {}", field.word);
    }
    for (std::size_t at = pattern.find('{'); at != std::string_view::npos;
         at = pattern.find('{', at + 1)) {
        const auto starts = [&](const Field& field) {
            return pattern.substr(at).starts_with(field.word);
        };
        if (std::ranges::none_of(nameFields, starts)) {
            return fmt::format("--name takes the fields{}, not {}", words, pattern.substr(at));
        }
    }
    return std::nullopt;
}

bool needsDump(std::string_view pattern) {
    return std::ranges::any_of(nameFields, [pattern](const Field& field) {
        return field.fromDump && pattern.find(field.word) != std::string_view::npos;
    });
}

std::string nameFrom(std::string pattern, const CutResult& result) {
    for (const Field& field : nameFields) {
        for (std::size_t at = pattern.find(field.word); at != std::string::npos;) {
            const std::string value = sanitised(field.of(result));
            if (value.empty()) {
                throw text::Refused(result.dump, "{} is empty in this dump", field.word);
            }
            pattern.replace(at, field.word.size(), value);
            at = pattern.find(field.word, at + value.size());
        }
    }
    std::string name = sanitised(pattern);
    if (name.empty()) {
        throw text::Refused(result.dump, "--name leaves its folder without a name");
    }
    return name;
}

void nameFolders(std::vector<CutResult>& inputs, const std::string& out) {
    std::set<std::string> taken;
    std::vector<std::pair<CutResult*, std::size_t>> unnamed;  // with their levels
    for (CutResult& input : inputs) {
        if (input.outcome == Outcome::Failed) {
            continue;
        }
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
        input.folder = input.folder.empty() ? "" : out + "/" + input.folder;
    }
}

}  // namespace calcut::cut
