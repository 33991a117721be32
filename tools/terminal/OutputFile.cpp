#include "tools/terminal/OutputFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <system_error>

#include <fmt/format.h>

#include "tools/terminal/Terminal.h"

namespace calcut::tools {

namespace {

std::string reasonOf(int error) {
    return error == ENXIO ? "nobody reads from this pipe" : std::generic_category().message(error);
}

// errno, or 0 for success.
int writeAll(int descriptor, std::span<const std::uint8_t> bytes) {
    while (!bytes.empty()) {
        const ssize_t put = write(descriptor, bytes.data(), bytes.size());
        if (put < 0 && errno != EINTR) {
            return errno;
        }
        bytes = bytes.subspan(put > 0 ? static_cast<std::size_t>(put) : 0);
    }
    return 0;
}

int writeInto(const std::string& path, int flags, std::span<const std::uint8_t> bytes) {
    constexpr mode_t everyone = 0666;
    const int descriptor = open(path.c_str(), O_WRONLY | O_CLOEXEC | flags, everyone);
    if (descriptor < 0) {
        return errno;
    }
    // Only the opening must not wait, for the reader of a pipe.
    if ((flags & O_NONBLOCK) != 0) {
        (void)fcntl(descriptor, F_SETFL, 0);
    }
    const int error = writeAll(descriptor, bytes);
    return close(descriptor) == 0 || error != 0 ? error : errno;
}

int replaceFile(const std::string& path, std::span<const std::uint8_t> bytes) {
    const std::string partial = fmt::format("{}.partial-{}", path, getpid());
    int error = writeInto(partial, O_CREAT | O_EXCL, bytes);
    if (error == 0 && std::rename(partial.c_str(), path.c_str()) != 0) {
        error = errno;
    }
    if (error != 0 && error != EEXIST) {
        unlink(partial.c_str());
    }
    return error;
}

std::string folderOf(const std::string& path) {
    const std::size_t slash = path.find_last_of('/');
    if (slash == std::string::npos) {
        return ".";
    }
    return slash == 0 ? "/" : path.substr(0, slash);
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

std::string whyNotWritable(const std::string& path, const std::vector<std::string>& inputs) {
    if (path == "-") {
        return {};
    }
    const std::optional<FileIdentity> identity = identityOf(path);
    struct stat status {};
    if (identity && stat(path.c_str(), &status) == 0) {
        if (S_ISDIR(status.st_mode)) {
            return reasonOf(EISDIR);
        }
        const bool read = std::any_of(inputs.begin(), inputs.end(), [&](const std::string& input) {
            return identityOf(input) == identity;
        });
        // What is no file on a disk cannot be lost.
        if (read && (S_ISREG(status.st_mode) || S_ISBLK(status.st_mode))) {
            return "is also an input; it is left alone";
        }
        if (!S_ISREG(status.st_mode)) {
            return access(path.c_str(), W_OK) == 0 ? std::string() : reasonOf(errno);
        }
    }
    return access(folderOf(path).c_str(), W_OK | X_OK) == 0 ? std::string() : reasonOf(errno);
}

bool writeOutput(const std::string& path, std::span<const std::uint8_t> bytes) {
    if (path == "-") {
        writeStdout({reinterpret_cast<const char*>(bytes.data()), bytes.size()});
        return finishStdout();
    }
    struct stat status {};
    const bool isLink = lstat(path.c_str(), &status) == 0 && S_ISLNK(status.st_mode);
    const bool exists = stat(path.c_str(), &status) == 0;
    int error = 0;
    if (exists && !S_ISREG(status.st_mode)) {
        error = writeInto(path, O_NONBLOCK, bytes);
    } else if (isLink) {
        // The link stays, the file behind it is replaced.
        char resolved[PATH_MAX];
        error = exists && realpath(path.c_str(), resolved) != nullptr
                    ? replaceFile(resolved, bytes)
                    : writeInto(path, O_CREAT | O_TRUNC, bytes);
    } else {
        error = replaceFile(path, bytes);
    }
    if (error != 0) {
        printError(path, reasonOf(error));
    }
    return error == 0;
}

}  // namespace calcut::tools
