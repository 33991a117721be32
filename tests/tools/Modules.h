// Two modules to cut, and what came of it.
#pragma once

#include "tools/Command.h"

namespace command {

using nlohmann::json;

inline std::string rowsOf(const json& report, const char* key) {
    std::string all;
    for (const json& row : report.at("dumps")) {
        all +=
            (all.empty() ? "" : " ") + (row[key].is_string() ? row[key].get<std::string>() : "-");
    }
    return all;
}

inline json reportIn(const TempDir& dir, const std::string& name = "r.json") {
    return json::parse(text(dir / name));
}

// Two modules that differ in everything, the second one with a signature.
inline void makePair(const TempDir& dir) {
    ASSERT_EQ(shell(dir, "mkdir l1 l2").status, 0);
    make(dir, "--size 16x12 --seed 1 -o l1/m.bin");
    make(dir, "--layout korveline --signature 9 --size 16x12 --seed 2 -o l2/m.bin");
}

inline std::map<std::string, Bytes> cutIn(const std::string& folder) {
    std::map<std::string, Bytes> files;
    for (const auto& [path, content] : tree(folder)) {
        if (!path.ends_with("cut.json")) {
            files[fs::path(path).filename().string()] = content;
        }
    }
    return files;
}

}  // namespace command
