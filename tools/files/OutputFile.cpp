#include "tools/files/OutputFile.h"

#include <fcntl.h>
#include <fnmatch.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <system_error>
#include <utility>

#include <fmt/format.h>

#include "tools/files/Temporary.h"
#include "tools/text/Terminal.h"

namespace calcut::files {

namespace {

namespace fs = std::filesystem;

std::string openReason(int error) {
    return error == ENXIO ? "nobody reads from this pipe" : text::errnoText(error);
}

void checkAccess(const std::string& path, const fs::path& accessed, int mode) {
    if (access(accessed.c_str(), mode) != 0) {
        throw text::Refused(path, openReason(errno));
    }
}

int replaceFile(const fs::path& path, std::string_view text) {
    const std::string folder = path.has_parent_path() ? path.parent_path().string() : ".";
    // Once for many files.
    static std::string searched;
    if (std::exchange(searched, folder) != folder) {
        forEachLeftover(folder, [](const std::string& left) { (void)unlink(left.c_str()); });
    }
    const Temporary partial(folder, Temporary::Kind::File);
    int error = writeAll(partial.descriptor(), text);
    // The lock must last until the file has its name, but some file systems tell only here that
    // they have no room.
    error = error == 0 && close(dup(partial.descriptor())) != 0 ? errno : error;
    if (error == 0 && std::rename(partial.path().c_str(), path.c_str()) != 0) {
        error = errno;
    }
    if (error != 0) {
        (void)unlink(partial.path().c_str());
    }
    return error;
}

}  // namespace

std::optional<FileIdentity> identityOf(const std::string& path) {
    struct stat status {};
    const int failed = path == "-" ? fstat(STDIN_FILENO, &status) : stat(path.c_str(), &status);
    if (failed != 0) {
        return std::nullopt;
    }
    return FileIdentity{status.st_dev, status.st_ino};
}

void checkWritable(const std::string& path, const std::vector<std::string>& inputs, bool force) {
    if (path == "-") {
        return;
    }
    std::error_code ignored;
    const fs::file_type type = fs::status(path, ignored).type();
    if (type == fs::file_type::directory) {
        throw text::Refused(path, openReason(EISDIR));
    }
    const bool isFile = type == fs::file_type::regular;
    // What is no file on a disk cannot be lost.
    if (isFile || type == fs::file_type::block) {
        const auto identity = identityOf(path);
        if (std::ranges::count(inputs, identity, identityOf) > 0) {
            throw text::Refused(path, "is also an input; it is left alone");
        }
    }
    if (isFile && !force) {
        throw text::Refused(path, "exists; --force replaces it");
    }
    if (fs::exists(fs::file_status(type)) && !isFile) {
        checkAccess(path, path, W_OK);
        return;
    }
    const fs::path folder = fs::path(path).parent_path();
    checkAccess(path, folder.empty() ? "." : folder, W_OK | X_OK);
}

std::optional<std::string> startOf(const std::string& path, std::size_t size) {
    const FileDescriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    struct stat status {};
    std::string start(size, '\0');
    const bool isFile = fstat(file.get(), &status) == 0 && S_ISREG(status.st_mode);
    const ssize_t got = isFile ? read(file.get(), start.data(), size) : -1;
    start.resize(static_cast<std::size_t>(std::max<ssize_t>(got, 0)));
    return got < 0 ? std::nullopt : std::optional(start);
}

bool isFreeForReport(const std::string& path, const std::vector<std::string>& patterns) {
    std::error_code ignored;
    if (path == "-" || !fs::is_regular_file(path, ignored)) {
        return true;
    }
    constexpr std::size_t size = 64;
    const auto start = startOf(path, size);
    return start && (start->empty() || std::ranges::any_of(patterns, [&](const std::string& like) {
                         return fnmatch(like.c_str(), start->c_str(), FNM_NOESCAPE) == 0;
                     }));
}

void writeOutput(const std::string& path, std::string_view text) {
    if (path == "-") {
        text::writeStdout(text);
        text::finishStdout();
        return;
    }
    std::error_code ignored;
    const bool isLink = fs::is_symlink(fs::symlink_status(path, ignored));
    const fs::file_status status = fs::status(path, ignored);
    const bool exists = fs::exists(status);
    // Of a link that leads to a file, the link stays.
    const int error =
        (exists ? !fs::is_regular_file(status) : isLink)
            ? writeInto(path, exists ? 0 : O_CREAT, text)
            : replaceFile(isLink ? fs::canonical(path, ignored) : fs::path(path), text);
    if (error != 0) {
        throw text::Refused(path, openReason(error));
    }
}

int makeDirectory(const std::string& path) {
    constexpr mode_t everyone = 0777;
    const int error = mkdir(path.c_str(), everyone) == 0 ? 0 : errno;
    std::error_code ignored;
    return error != EEXIST ? error : fs::is_directory(path, ignored) ? 0 : ENOTDIR;
}

int writeAll(int descriptor, std::string_view text) {
    while (!text.empty()) {
        const ssize_t put = write(descriptor, text.data(), text.size());
        if (put < 0 && errno != EINTR) {
            return errno;
        }
        text.remove_prefix(put > 0 ? static_cast<std::size_t>(put) : 0);
    }
    return 0;
}

int writeInto(const std::string& path, int flags, std::string_view text) {
    constexpr mode_t everyone = 0666;
    FileDescriptor file(open(path.c_str(), O_WRONLY | O_CLOEXEC | O_NONBLOCK | flags, everyone));
    if (file.get() < 0) {
        return errno;
    }
    // Only the opening must not wait.
    (void)fcntl(file.get(), F_SETFL, 0);
    const int error = writeAll(file.get(), text);
    return close(file.release()) == 0 || error != 0 ? error : errno;
}

int syncToDisk(const std::string& path) {
    const FileDescriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC));
    const int error = file.get() >= 0 && fsync(file.get()) == 0 ? 0 : errno;
    return error == EINVAL ? 0 : error;
}

}  // namespace calcut::files
