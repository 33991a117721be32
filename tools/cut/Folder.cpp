#include "tools/cut/Folder.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <optional>
#include <system_error>
#include <utility>

#include <fmt/format.h>

#include "tools/cut/Note.h"
#include "tools/files/Temporary.h"
#include "tools/text/Escape.h"
#include "tools/text/Terminal.h"

namespace calcut::cut {

namespace {

namespace fs = std::filesystem;

fs::file_type typeOf(const fs::path& path) {
    std::error_code ignored;
    return fs::symlink_status(path, ignored).type();
}

/// Files that no cut makes stay, and the folder with them.
void removeCut(const std::string& folder) {
    for (const char* name : stackFiles) {
        (void)unlink((folder + "/" + name).c_str());
    }
    (void)unlink((folder + "/" + noteFile).c_str());
    (void)rmdir(folder.c_str());
}

// ----------------------------------------------------------------------------------- beside it --

constexpr const char* freshFolder = "/new";
constexpr const char* earlierFolder = "/earlier";

/// A hidden folder for the files that come and for those that go. The new ones that are still there
/// go with the object, the earlier ones when they are dropped.
class Staging {
  public:
    Staging(const std::string& dump, const std::string& parent) try
        : temporary_(parent, files::Temporary::Kind::Folder) {
        if (const int error = files::makeDirectory(fresh())) {
            throw text::Refused(dump, text::errnoText(error));
        }
    } catch (const text::Refused& refused) {
        throw text::Refused(dump, "cannot write into {}: {}", text::escapePath(parent),
                            refused.what());
    }
    Staging(const Staging&) = delete;
    Staging& operator=(const Staging&) = delete;
    ~Staging() { remove(temporary_.path()); }

    [[nodiscard]] std::string fresh() const { return temporary_.path() + freshFolder; }
    [[nodiscard]] std::string earlier() const { return temporary_.path() + earlierFolder; }

    static void remove(const std::string& staging) {
        if (rmdir(staging.c_str()) != 0) {
            removeCut(staging + freshFolder);
            (void)rmdir((staging + earlierFolder).c_str());
            (void)rmdir(staging.c_str());
        }
    }

  private:
    files::Temporary temporary_;
};

// ---------------------------------------------------------------------------------- single cut --

bool isDump(const std::string& path) {
    constexpr std::size_t magics = 64;
    const std::string start = files::startOf(path, magics).value_or("");
    const auto* bytes = reinterpret_cast<const std::uint8_t*>(start.data());
    return module::classify({bytes, start.size()}).image != nullptr;
}

/// None of the files in a folder, which belong to the directory, may be the dump, anything but a
/// regular file, or (unless forced) a dump itself.
void checkFiles(const std::string& folder, const std::string& directory, const std::string& dump,
                bool force) {
    const auto input = files::identityOf(dump);
    for (const char* name : stackFiles) {
        const std::string path = folder + "/" + name;
        const fs::file_type type = typeOf(path);
        if (input && files::identityOf(path) == input) {
            throw text::Refused(directory, "{} is also an input; it is left alone", name);
        }
        if (type == fs::file_type::not_found || type == fs::file_type::none) {
            continue;
        }
        if (type != fs::file_type::regular) {
            throw text::Refused(directory, "{} is not a regular file; it is left alone", name);
        }
        if (!force && isDump(path)) {
            throw text::Refused(directory, "{} is a dump; --force replaces it", name);
        }
    }
}

void syncFiles(const std::string& folder, const std::string& dump) {
    for (const char* name : stackFiles) {
        const int error = files::syncToDisk(folder + "/" + name);
        text::check(error == ENOENT ? 0 : error, dump, "cannot write {}", name);
    }
}

/// Moves files one after the other; all go back when something fails.
class Moves {
  public:
    explicit Moves(const std::string& dump) : dump_(dump) {}

    /// The files of a cut that are in one folder, into another.
    void move(const std::string& from, const std::string& to) {
        for (const std::string name : stackFiles) {
            std::string source = fmt::format("{}/{}", from, name);
            std::string target = fmt::format("{}/{}", to, name);
            done_.reserve(done_.size() + 1);
            if (typeOf(source) == fs::file_type::not_found) {
                continue;
            }
            text::check(files::moveWithoutReplacing(source, target), dump_, "cannot move {}",
                        text::escapePath(source));
            done_.emplace_back(std::move(source), std::move(target));
        }
    }

    /// Whether all are back.
    bool takeBack() {
        bool all = true;
        for (; !done_.empty(); done_.pop_back()) {
            all = files::moveWithoutReplacing(done_.back().second, done_.back().first) == 0 && all;
        }
        return all;
    }

  private:
    const std::string& dump_;
    std::vector<std::pair<std::string, std::string>> done_;
};

// ----------------------------------------------------------------------------------- many cuts --

/// What a folder at that place holds, which is result.folder's, must be what a cut of this dump may
/// replace.
void checkReplaceable(const std::string& place, const CutResult& result,
                      std::span<const files::FileIdentity> reads, const text::Json& note,
                      bool force) {
    const fs::file_type type = typeOf(place);
    if (type == fs::file_type::not_found || type == fs::file_type::none) {
        return;
    }
    const std::string folder = text::escapePath(result.folder);
    std::error_code error;
    const fs::directory_iterator entries(place, error);
    if (type != fs::file_type::directory || error) {
        throw text::Refused(result.dump, "{} exists and is no folder; it is left alone", folder);
    }
    bool empty = true;
    for (const fs::directory_entry& entry : entries) {
        empty = false;
        const std::string name = entry.path().filename().string();
        const bool own = typeOf(entry.path()) == fs::file_type::regular &&
                         (name == noteFile || std::ranges::count(stackFiles, name) > 0);
        const auto identity = files::identityOf(entry.path().string());
        if (!own || std::find(reads.begin(), reads.end(), identity) != reads.end()) {
            throw text::Refused(result.dump, "{} holds {}, which {}; it is left alone", folder,
                                text::escapePath(name), own ? "is also an input" : "no cut makes");
        }
        if (!force && isDump(entry.path().string())) {
            throw text::Refused(result.dump, "{} holds {}, which is a dump; --force replaces it",
                                folder, name);
        }
    }
    const text::Json found = noteIn(place);
    if (!force && !empty && !agree(found, note, {"source"}) &&
        !agree(found, note, {"bytes", "crc32"}) && !isNoteBlank(place)) {
        throw text::Refused(
            result.dump, "{} holds the cut of {}; --force replaces it", folder,
            found.empty() ? "an unknown dump" : text::escapePath(found.value("source", "")));
    }
}

int exchange(const std::string& one, const std::string& other) {
    const int failed = renameat2(AT_FDCWD, one.c_str(), AT_FDCWD, other.c_str(), RENAME_EXCHANGE);
    return failed != 0 ? errno : 0;
}

/// Gives the new folder its name. check looks at what had it before.
template <class Check>
void takeName(const Staging& staging, const CutResult& result, const Check& check) {
    const std::string fresh = staging.fresh();
    const std::string aside = staging.earlier();
    const auto requireMoved = [&result](int error) {
        text::check(error, result.dump, "cannot replace {}", text::escapePath(result.folder));
    };
    const auto refuseWithCopy = [&](const std::exception& error) {
        throw text::Refused(result.dump, "{}; the earlier cut is in {}", text::reasonOf(error),
                            text::escapePath(aside));
    };
    const int taken = files::moveWithoutReplacing(fresh, result.folder);
    if (taken == 0) {
        return;
    }
    requireMoved(taken == EEXIST ? 0 : taken);
    if (exchange(fresh, result.folder) == 0) {
        try {
            check(fresh);
        } catch (const std::exception& error) {
            if (exchange(fresh, result.folder) != 0) {
                (void)files::moveWithoutReplacing(fresh, aside);
                refuseWithCopy(error);
            }
            throw;
        }
        return;
    }
    // A file system that cannot exchange two names.
    requireMoved(files::moveWithoutReplacing(result.folder, aside));
    try {
        check(aside);
        requireMoved(files::moveWithoutReplacing(fresh, result.folder));
    } catch (const std::exception& error) {
        if (files::moveWithoutReplacing(aside, result.folder) != 0) {
            refuseWithCopy(error);
        }
        throw;
    }
    removeCut(aside);
}

}  // namespace

void cutInto(const TakenDump& taken, const std::string& directory, bool force, CutResult& result) {
    result.folder = directory;
    checkDirectory(directory);
    const files::FolderLock lock(directory);
    checkFiles(directory, directory, result.dump, force);
    {
        const Staging staging(result.dump, directory);
        const std::string earlier = staging.earlier();
        writeStackFiles(taken, staging.fresh(), result);
        syncFiles(staging.fresh(), result.dump);
        if (text::InterruptGuard::interrupted()) {
            throw text::Refused(result.dump, "interrupted");
        }
        Moves moves(result.dump);
        try {
            text::check(files::makeDirectory(earlier), result.dump, "cannot write into {}",
                        text::escapePath(directory));
            moves.move(directory, earlier);
            checkFiles(earlier, directory, result.dump, force);
            moves.move(staging.fresh(), directory);
        } catch (const std::exception& error) {
            if (!moves.takeBack()) {
                throw text::Refused(result.dump, "{}; the earlier files are in {}",
                                    text::reasonOf(error), text::escapePath(earlier));
            }
            throw;
        }
        // That the new files are in place is on the disk before the earlier ones go.
        (void)files::syncToDisk(directory);
        removeCut(earlier);
    }
    // Earlier files of a run that was killed between its moves are superseded, too.
    removeLeftovers(directory, true);
    result.outcome = Outcome::Cut;
}

void cutToFolder(const TakenDump& taken, std::span<const files::FileIdentity> reads,
                 const CutOptions& options, CutResult& result) {
    // Somebody may cut a single dump into it.
    std::optional<files::FolderLock> lock;
    if (typeOf(result.folder) == fs::file_type::directory) {
        lock.emplace(result.folder);
    }
    requireRoom();
    const text::Json note = noteOf(taken, result);
    const text::Json found = noteIn(result.folder);
    const bool sameDump = agree(found, note, {"schema", "bytes", "crc32", "layout"});
    if (options.resume && sameDump && agree(found, note, {"files"}) &&
        differences(taken.files, result.folder).empty()) {
        result.outcome = Outcome::Kept;
        return;
    }
    const auto check = [&](const std::string& place) {
        checkReplaceable(place, result, reads, note, options.force);
    };
    check(result.folder);
    const Staging staging(result.dump, options.out);
    writeStackFiles(taken, staging.fresh(), result);
    text::check(files::writeInto(staging.fresh() + "/" + noteFile, O_CREAT | O_EXCL,
                                 text::jsonText(note, 2) + "\n"),
                result.dump, "cannot write {}", noteFile);
    takeName(staging, result, check);
    result.outcome = options.resume && sameDump ? Outcome::Repaired : Outcome::Cut;
}

void checkDirectory(const std::string& directory) {
    std::error_code error;
    if (!fs::is_directory(directory, error)) {
        throw text::Refused(directory, error ? error.message() : "is not a directory");
    }
    if (access(directory.c_str(), W_OK | X_OK) != 0) {
        throw text::Refused(directory, text::errnoText(errno));
    }
}

bool holdsAnyCut(const std::string& directory) {
    return std::ranges::any_of(stackFiles, [&](const char* name) {
        return typeOf(fs::path(directory) / name) != fs::file_type::not_found;
    });
}

std::string earlierCutIn(const std::string& folder) {
    return "; an earlier cut is still in " + text::escapePath(folder);
}

void removeLeftovers(const std::string& directory, bool superseded) {
    files::forEachLeftover(directory, [superseded](const std::string& leftover) {
        (void)unlink(leftover.c_str());
        if (superseded) {
            removeCut(leftover + earlierFolder);
        }
        Staging::remove(leftover);
        if (files::identityOf(leftover)) {
            text::printWarning(leftover,
                               "was left by a run that was killed, and holds an earlier cut");
        }
    });
}

}  // namespace calcut::cut
