#include "tools/cut/Folder.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <system_error>
#include <utility>

#include <fmt/format.h>

#include "tools/terminal/Escape.h"

namespace calcut::tools {

namespace {

constexpr const char* earlierPrefix = "earlier-";

std::string errnoText() {
    return std::generic_category().message(errno);
}

std::string inside(const std::string& directory, const std::string& name) {
    return directory + "/" + name;
}

bool isMissing(const std::string& path) {
    struct stat status {};
    return lstat(path.c_str(), &status) != 0 && (errno == ENOENT || errno == ENOTDIR);
}

struct DirectoryCloser {
    void operator()(DIR* directory) const { (void)closedir(directory); }
};

// Names of what a directory holds; nothing when it cannot be read.
std::optional<std::vector<std::string>> entriesOf(const std::string& directory) {
    const std::unique_ptr<DIR, DirectoryCloser> opened(opendir(directory.c_str()));
    if (!opened) {
        return std::nullopt;
    }
    std::vector<std::string> names;
    // The stream is this call's own.
    while (const dirent* entry = readdir(opened.get())) {  // NOLINT(concurrency-mt-unsafe)
        const std::string name = entry->d_name;
        if (name != "." && name != "..") {
            names.push_back(name);
        }
    }
    return names;
}

void removeFolder(const std::string& folder) {
    for (const std::string& name : entriesOf(folder).value_or(std::vector<std::string>())) {
        unlink(inside(folder, name).c_str());
    }
    rmdir(folder.c_str());
}

bool isInput(const struct stat& status, const std::vector<FileIdentity>& inputs) {
    return std::find(inputs.begin(), inputs.end(), FileIdentity{status.st_dev, status.st_ino}) !=
           inputs.end();
}

bool isFileOfCut(const std::string& name) {
    return name == ownerFile ||
           std::find(stackFiles.begin(), stackFiles.end(), name) != stackFiles.end();
}

bool isSameDump(const Owner& one, const Owner& other) {
    return one.size == other.size && one.crc == other.crc;
}

// Moves files one by one, and back when one of them fails.
class Moves {
  public:
    bool move(const std::string& from, const std::string& to) {
        if (std::rename(from.c_str(), to.c_str()) != 0) {
            return false;
        }
        done_.emplace_back(from, to);
        return true;
    }
    bool undo() {
        bool good = true;
        for (auto step = done_.rbegin(); step != done_.rend(); ++step) {
            good = std::rename(step->second.c_str(), step->first.c_str()) == 0 && good;
        }
        return good;
    }

  private:
    std::vector<std::pair<std::string, std::string>> done_;
};

}  // namespace

// ---------------------------------------------------------------------------- temporary folder --

TemporaryFolder::TemporaryFolder(const std::string& parent, std::size_t number)
    : path_(fmt::format("{}/.calcut-{}-{}", parent, getpid(), number)) {
    constexpr mode_t everyone = 0777;
    if (mkdir(path_.c_str(), everyone) != 0) {
        error_ = fmt::format("cannot write into {}: {}", escapePath(parent), errnoText());
        kept_ = true;
    }
}

TemporaryFolder::~TemporaryFolder() {
    if (!kept_) {
        removeFolder(path_);
    }
}

// ---------------------------------------------------------------------------------- single cut --

std::string whyNoOutput(const std::string& directory) {
    struct stat status {};
    if (stat(directory.c_str(), &status) != 0) {
        return errnoText();
    }
    if (!S_ISDIR(status.st_mode)) {
        return "is not a directory";
    }
    return access(directory.c_str(), W_OK | X_OK) == 0 ? std::string() : errnoText();
}

std::string whyNotInto(const std::string& directory, const std::vector<FileIdentity>& inputs,
                       bool force) {
    for (const char* name : stackFiles) {
        const std::string path = inside(directory, name);
        struct stat status {};
        if (stat(path.c_str(), &status) == 0 && isInput(status, inputs)) {
            return fmt::format("{} is also an input; it is left alone", name);
        }
        if (lstat(path.c_str(), &status) != 0) {
            continue;
        }
        if (!S_ISREG(status.st_mode)) {
            return fmt::format("{} is not a regular file; it is left alone", name);
        }
        if (!force) {
            const Layout layout = classify(loadDump(path).bytes);
            if (layout == Layout::V7 || layout == Layout::Korveline) {
                return fmt::format("{} is a dump; --force replaces it", name);
            }
        }
    }
    return {};
}

std::string moveFiles(TemporaryFolder& temporary, const std::string& directory) {
    Moves moves;
    std::string failed;
    const auto move = [&](const std::string& from, const std::string& to) {
        if (failed.empty() && !isMissing(from) && !moves.move(from, to)) {
            failed = fmt::format("cannot move {}: {}", escapePath(from), errnoText());
        }
    };
    for (const char* name : stackFiles) {
        move(inside(directory, name), inside(temporary.path(), std::string(earlierPrefix) + name));
    }
    for (const char* name : stackFiles) {
        move(inside(temporary.path(), name), inside(directory, name));
    }
    if (!failed.empty() && !moves.undo()) {
        temporary.keep();
        failed += fmt::format("; the earlier files are in {}", escapePath(temporary.path()));
    }
    return failed;
}

// ----------------------------------------------------------------------------------- many cuts --

std::string whyNotFolder(const std::string& folder, const Owner& owner,
                         const std::vector<FileIdentity>& inputs, bool force) {
    struct stat status {};
    if (lstat(folder.c_str(), &status) != 0) {
        return {};
    }
    const auto names = S_ISDIR(status.st_mode) ? entriesOf(folder) : std::nullopt;
    if (!names) {
        return fmt::format("{} exists and is no folder; it is left alone", escapePath(folder));
    }
    for (const std::string& name : *names) {
        if (lstat(inside(folder, name).c_str(), &status) != 0 || !S_ISREG(status.st_mode) ||
            !isFileOfCut(name)) {
            return fmt::format("{} holds {}, which no cut makes; it is left alone",
                               escapePath(folder), escapePath(name));
        }
        if (isInput(status, inputs)) {
            return fmt::format("{} holds {}, which is also an input; it is left alone",
                               escapePath(folder), escapePath(name));
        }
    }
    const std::optional<Owner> found = readOwner(folder);
    const bool own = found && (found->source == owner.source || isSameDump(*found, owner));
    if (own || force || names->empty()) {
        return {};
    }
    return fmt::format("{} holds the cut of {}; --force replaces it", escapePath(folder),
                       found ? escapePath(found->source) : "an unknown dump");
}

std::string moveFolder(TemporaryFolder& temporary, const std::string& folder) {
    const char* from = temporary.path().c_str();
    const char* to = folder.c_str();
    // What was there takes the temporary name, and goes away with it.
    if (std::rename(from, to) == 0 ||
        renameat2(AT_FDCWD, from, AT_FDCWD, to, RENAME_EXCHANGE) == 0) {
        return {};
    }
    const std::string aside = temporary.path() + "-earlier";
    if (std::rename(to, aside.c_str()) != 0 || std::rename(from, to) != 0) {
        const std::string reason = errnoText();
        (void)std::rename(aside.c_str(), to);
        return fmt::format("cannot replace {}: {}", escapePath(folder), reason);
    }
    removeFolder(aside);
    return {};
}

std::optional<Owner> readOwner(const std::string& folder) {
    const std::vector<std::uint8_t> bytes = loadDump(inside(folder, ownerFile)).bytes;
    return bytes.empty() ? std::nullopt : ownerFromJson({bytes.begin(), bytes.end()});
}

std::string writeOwner(const std::string& folder, const Owner& owner) {
    const std::string text = toJson(owner);
    const std::string path = inside(folder, ownerFile);
    std::FILE* file = std::fopen(path.c_str(), "wbe");
    bool good = file != nullptr && std::fwrite(text.data(), 1, text.size(), file) == text.size();
    good = file != nullptr && std::fclose(file) == 0 && good;
    return good ? std::string() : fmt::format("cannot write {}: {}", ownerFile, errnoText());
}

bool holdsWholeCut(const std::string& folder, const Owner& earlier, const Owner& dump) {
    const auto whole = [&folder](const Owner::File& file) {
        struct stat status {};
        return lstat(inside(folder, file.name).c_str(), &status) == 0 && S_ISREG(status.st_mode) &&
               static_cast<std::uint64_t>(status.st_size) == file.size;
    };
    return isSameDump(earlier, dump) && earlier.layout == dump.layout &&
           std::equal(earlier.files.begin(), earlier.files.end(), dump.files.begin(),
                      dump.files.end(),
                      [](const Owner::File& one, const Owner::File& other) {
                          return one.name == other.name && one.size == other.size;
                      }) &&
           std::all_of(earlier.files.begin(), earlier.files.end(), whole);
}

bool holdsAnyCut(const std::string& directory) {
    return std::any_of(stackFiles.begin(), stackFiles.end(),
                       [&](const char* name) { return !isMissing(inside(directory, name)); });
}

}  // namespace calcut::tools
