#include "tools/cut/Folder.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <system_error>
#include <utility>

#include <fmt/format.h>

#include "tools/files/OutputFile.h"
#include "tools/module/Layout.h"
#include "tools/text/Escape.h"
#include "tools/text/Terminal.h"

namespace calcut::cut {

namespace {

namespace fs = std::filesystem;

constexpr const char* noteFile = "cut.json";

fs::file_type typeOf(const fs::path& path) {
    std::error_code ignored;
    return fs::symlink_status(path, ignored).type();
}

bool isFileOfCut(const std::string& name) {
    return name == noteFile || std::ranges::count(stackFiles, name) > 0;
}

// No folders in it: what is removed here holds files of cuts.
void removeFolder(const fs::path& folder) {
    std::error_code ignored;
    for (fs::directory_iterator entry(folder, ignored); entry != fs::directory_iterator();
         entry.increment(ignored)) {
        std::error_code left;
        fs::remove(entry->path(), left);
    }
    fs::remove(folder, ignored);
}

// A new hidden folder that goes away, with the files in it, with the object.
class TemporaryFolder {
  public:
    TemporaryFolder(const std::string& dump, const std::string& parent, std::size_t number)
        : dump_(dump), path_(fmt::format("{}/.calcut-{}-{}", parent, getpid(), number)) {
        constexpr mode_t everyone = 0777;
        if (mkdir(path_.c_str(), everyone) != 0) {
            throw text::Refused(dump, "cannot write into {}: {}", text::escapePath(parent),
                                text::errnoText(errno));
        }
    }
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;
    ~TemporaryFolder() {
        if (!kept_) {
            removeFolder(path_);
        }
    }

    [[nodiscard]] const std::string& path() const { return path_; }

    // Earlier files leave the directory before the first new one comes; all come back when
    // something fails. What is moved, and that it was, is on the disk before earlier files go.
    void moveFilesInto(const std::string& directory) {
        std::vector<std::pair<fs::path, fs::path>> moves;
        moves.reserve(2 * stackFiles.size());
        for (const std::string name : stackFiles) {
            moves.emplace_back(fs::path(directory) / name, path_ + "/earlier-" + name);
        }
        for (const char* name : stackFiles) {
            moves.emplace_back(fs::path(path_) / name, fs::path(directory) / name);
            const int error = files::syncToDisk(moves.back().first.string());
            if (error != 0 && error != ENOENT) {
                throw text::Refused(dump_, "cannot write {}: {}", name, text::errnoText(error));
            }
        }
        std::erase_if(
            moves, [](const auto& move) { return typeOf(move.first) == fs::file_type::not_found; });
        std::size_t done = 0;
        std::error_code error;
        while (done < moves.size() && !error) {
            fs::rename(moves[done].first, moves[done].second, error);
            done += error ? 0 : 1;
        }
        if (!error) {
            (void)files::syncToDisk(directory);
            return;
        }
        const auto failed = moves.begin() + static_cast<std::ptrdiff_t>(done);
        while (done-- > 0) {
            std::error_code lost;
            fs::rename(moves[done].second, moves[done].first, lost);
            kept_ = kept_ || lost;
        }
        throw text::Refused(dump_, "cannot move {}: {}{}", text::escapePath(failed->first.string()),
                            error.message(),
                            kept_ ? "; the earlier files are in " + text::escapePath(path_) : "");
    }

    // Takes that name; what was there takes this one, and goes away with it.
    void replace(const std::string& folder) {
        const char* from = path_.c_str();
        const char* to = folder.c_str();
        if (std::rename(from, to) == 0 ||
            renameat2(AT_FDCWD, from, AT_FDCWD, to, RENAME_EXCHANGE) == 0) {
            return;
        }
        const std::string aside = path_ + "-earlier";
        if (std::rename(to, aside.c_str()) != 0 || std::rename(from, to) != 0) {
            const std::string reason = text::errnoText(errno);
            (void)std::rename(aside.c_str(), to);
            throw text::Refused(dump_, "cannot replace {}: {}", text::escapePath(folder), reason);
        }
        removeFolder(aside);
    }

  private:
    std::string dump_;  ///< what a refusal is about
    std::string path_;
    bool kept_ = false;  ///< because it holds what must not be lost
};

bool isDump(const std::string& path) try {
    return module::classify(files::loadDump(path).bytes).image != nullptr;
} catch (const text::Refused&) {
    return false;
}

// None of the files may be the dump, anything but a regular file, or (unless forced) a dump itself.
void checkFilesIn(const std::string& directory, const std::string& dump, bool force) {
    const auto input = files::identityOf(dump);
    for (const char* name : stackFiles) {
        const std::string path = (fs::path(directory) / name).string();
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

// ----------------------------------------------------------------------------------- many cuts --

text::Json noteOf(const TakenDump& taken, const CutResult& result) {
    text::Json note = {{"schema", cutSchema},
                       {"calcut", CALCUT_VERSION},
                       {"source", result.source},
                       {"bytes", result.size},
                       {"crc32", result.crc},
                       {"layout", result.layout.name},
                       {"maskedPixels", result.maskedPixels}};
    for (const StackFile& file : taken.files) {
        note["files"][file.name] = file.bytes.size();
    }
    return note;
}

bool agree(const text::Json& found, const text::Json& note,
           std::initializer_list<const char*> keys) {
    return std::ranges::all_of(
        keys, [&](const char* key) { return found.value(key, text::Json()) == note.at(key); });
}

bool holdsWholeCut(const fs::path& folder, const text::Json& found, const text::Json& note) {
    const auto files = note.at("files").items();
    return agree(found, note, {"bytes", "crc32", "layout", "files"}) &&
           found.value("maskedPixels", text::Json()).is_number_unsigned() &&
           std::all_of(files.begin(), files.end(), [&folder](const auto& file) {
               const fs::path path = folder / file.key();
               std::error_code ignored;
               return typeOf(path) == fs::file_type::regular &&
                      fs::file_size(path, ignored) == file.value();
           });
}

void checkFolder(const CutResult& result, std::span<const files::FileIdentity> reads,
                 const text::Json& found, const text::Json& note, bool force) {
    const fs::file_type type = typeOf(result.folder);
    if (type == fs::file_type::not_found || type == fs::file_type::none) {
        return;
    }
    const std::string folder = text::escapePath(result.folder);
    std::error_code error;
    const fs::directory_iterator entries(result.folder, error);
    if (type != fs::file_type::directory || error) {
        throw text::Refused(result.dump, "{} exists and is no folder; it is left alone", folder);
    }
    for (const fs::directory_entry& entry : entries) {
        const std::string name = entry.path().filename().string();
        const bool own = typeOf(entry.path()) == fs::file_type::regular && isFileOfCut(name);
        const auto identity = files::identityOf(entry.path().string());
        if (!own || std::find(reads.begin(), reads.end(), identity) != reads.end()) {
            throw text::Refused(result.dump, "{} holds {}, which {}; it is left alone", folder,
                                text::escapePath(name), own ? "is also an input" : "no cut makes");
        }
    }
    if (!force && !fs::is_empty(result.folder, error) && !agree(found, note, {"source"}) &&
        !agree(found, note, {"bytes", "crc32"})) {
        throw text::Refused(
            result.dump, "{} holds the cut of {}; --force replaces it", folder,
            found.empty() ? "an unknown dump" : text::escapePath(found.value("source", "")));
    }
}

}  // namespace

// ---------------------------------------------------------------------------------- single cut --

void cutInto(const TakenDump& taken, const std::string& directory, bool force, CutResult& result) {
    result.folder = directory;
    text::refuseFor(directory, whyNoOutput(directory));
    checkFilesIn(directory, result.dump, force);
    TemporaryFolder temporary(result.dump, directory, 0);
    writeStackFiles(taken, temporary.path(), result);
    if (text::InterruptGuard::interrupted()) {
        throw text::Refused(result.dump, "interrupted");
    }
    temporary.moveFilesInto(directory);
    result.outcome = Outcome::Cut;
}

void cutToFolder(const TakenDump& taken, std::span<const files::FileIdentity> reads,
                 std::size_t number, const CutOptions& options, CutResult& result) {
    text::Json note = noteOf(taken, result);
    const text::Json found = noteIn(result.folder);
    if (options.resume && holdsWholeCut(result.folder, found, note)) {
        result.outcome = Outcome::Kept;
        result.maskedPixels = found["maskedPixels"];
        return;
    }
    checkFolder(result, reads, found, note, options.force);
    TemporaryFolder temporary(result.dump, options.out, number);
    writeStackFiles(taken, temporary.path(), result);
    note["maskedPixels"] = result.maskedPixels;
    const std::string text = text::jsonText(note, 2) + "\n";
    if (const int error =
            files::writeInto(temporary.path() + "/" + noteFile, O_CREAT | O_EXCL, text)) {
        throw text::Refused(result.dump, "cannot write {}: {}", noteFile, text::errnoText(error));
    }
    temporary.replace(result.folder);
    result.outcome = Outcome::Cut;
}

text::Json noteIn(const std::string& folder) {
    try {
        text::Json note = text::parseJson(files::loadDump(folder + "/" + noteFile).bytes);
        if (note.is_object() && note.value("source", text::Json()).is_string()) {
            return note;
        }
    } catch (const text::Refused&) {
        // As if it held nothing.
    }
    return text::Json::object();
}

std::string whyNoOutput(const std::string& directory) {
    std::error_code error;
    const bool isFolder = fs::is_directory(directory, error);
    if (error) {
        return error.message();
    }
    if (!isFolder) {
        return "is not a directory";
    }
    return access(directory.c_str(), W_OK | X_OK) == 0 ? std::string() : text::errnoText(errno);
}

bool holdsAnyCut(const std::string& directory) {
    return std::ranges::any_of(stackFiles, [&](const char* name) {
        return typeOf(fs::path(directory) / name) != fs::file_type::not_found;
    });
}

std::string earlierCutIn(const std::string& folder) {
    return "; an earlier cut is still in " + text::escapePath(folder);
}

}  // namespace calcut::cut
