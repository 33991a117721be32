// The command, run as people run it.
#pragma once

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <map>
#include <nlohmann/json.hpp>
#include <string>

#include "fixtures.h"

namespace command {

using namespace fixtures;
namespace fs = std::filesystem;

struct Outcome {
    int status = -1;  ///< of the exit; a signal's number below zero
    std::string out, err;
};

inline std::string text(const std::string& path) {
    const Bytes bytes = readBytes(path);
    return {bytes.begin(), bytes.end()};
}

inline Outcome outcomeOf(const TempDir& dir, int status) {
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status), text(dir / ".out"),
            text(dir / ".err")};
}

// Runs a shell line inside dir, where $C is the command.
inline Outcome shell(const TempDir& dir, const std::string& line) {
    const std::string whole = "cd " + dir.path() + " && C='" CALCUT_COMMAND "' && { " + line +
                              "; } >.out 2>.err </dev/null";
    return outcomeOf(dir, std::system(whole.c_str()));
}

// Runs calcut with the words of a shell line, inside dir.
inline Outcome run(const TempDir& dir, const std::string& words) {
    return shell(dir, "$C " + words);
}

// The same, with a signal once path is there and the command waits.
inline Outcome runAndSignal(const TempDir& dir, const std::string& words, const std::string& path,
                            int signal) {
    const std::string line =
        "cd " + dir.path() + " && exec " CALCUT_COMMAND " " + words + " >.out 2>.err";
    const pid_t child = fork();
    if (child == 0) {
        execl("/bin/sh", "sh", "-c", line.c_str(), nullptr);
        _exit(127);
    }
    for (int wait = 0; wait < 6000 && !fs::exists(path); ++wait) {
        usleep(5000);
    }
    waitUntilAtRest(child);
    kill(child, signal);
    int status = 0;
    waitpid(child, &status, 0);
    return outcomeOf(dir, status);
}

inline std::size_t lines(const std::string& text) {
    return static_cast<std::size_t>(std::count(text.begin(), text.end(), '\n'));
}

inline bool matches(const std::string& text, const std::string& pattern) {
    return firstMatch(text, pattern).has_value();
}

inline void make(const TempDir& dir, const std::string& words) {
    const Outcome result = run(dir, "make " + words);
    ASSERT_EQ(result.status, 0) << result.err;
}

inline nlohmann::json inspect(const TempDir& dir, const std::string& file, int status) {
    const Outcome result = run(dir, "inspect --json " + file);
    EXPECT_EQ(result.status, status) << result.err;
    return nlohmann::json::parse(result.out);
}

// Everything below a folder, by path.
inline std::map<std::string, Bytes> tree(const std::string& folder) {
    std::map<std::string, Bytes> files;
    for (const auto& entry : fs::recursive_directory_iterator(folder)) {
        files[entry.path().string()] =
            entry.is_regular_file() ? readBytes(entry.path().string()) : Bytes();
    }
    return files;
}

}  // namespace command
