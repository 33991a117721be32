#include "tools/files/Dump.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <limits>

#include <fmt/format.h>

#include "tools/files/Temporary.h"
#include "tools/text/Escape.h"
#include "tools/text/Terminal.h"

namespace calcut::files {

namespace {

std::string tooLarge(std::uint64_t limit) {
    constexpr std::uint64_t step = 1024;
    std::uint64_t size = limit;
    std::size_t unit = 0;
    while (unit < 3 && size != 0 && size % step == 0) {
        size /= step;
        ++unit;
    }
    return fmt::format(
        "is larger than {}, the limit for a dump (--max-size)",
        unit == 0 ? text::byteCount(size) : fmt::format("{} {}iB", size, "KMG"[unit - 1]));
}

std::string whyNotOpened(const std::string& path, int error) {
    struct stat status {};
    const bool isSocket =
        error == ENXIO && stat(path.c_str(), &status) == 0 && S_ISSOCK(status.st_mode);
    return isSocket ? "is a socket" : text::errnoText(error);
}

// The next bytes, waiting for them where the file was opened without; 0 at the end. An interrupted
// wait is an error, so that a signal ends it.
ssize_t readSome(int descriptor, std::uint8_t* to, std::size_t size) {
    for (;;) {
        const ssize_t got = read(descriptor, to, size);
        if (got >= 0 || errno != EAGAIN) {
            return got;
        }
        pollfd more{descriptor, POLLIN, 0};
        if (poll(&more, 1, -1) < 0) {
            return -1;
        }
    }
}

// Fills bytes up to the end of the file, or to one byte more than limit. False: errno tells.
bool readAll(int descriptor, std::uint64_t expected, std::uint64_t limit,
             std::vector<std::uint8_t>& bytes) {
    constexpr std::uint64_t chunk = std::uint64_t{1} << 16;
    std::size_t filled = 0;
    bytes.resize(static_cast<std::size_t>(std::min(std::max(expected, chunk), limit) + 1));
    for (;;) {
        const ssize_t got = readSome(descriptor, bytes.data() + filled, bytes.size() - filled);
        if (got < 0) {
            return false;
        }
        filled += static_cast<std::size_t>(got);
        if (got == 0 || filled > limit) {
            bytes.resize(filled);
            return true;
        }
        if (filled == bytes.size()) {
            bytes.resize(static_cast<std::size_t>(std::min<std::uint64_t>(limit, 2 * filled) + 1));
        }
    }
}

void arrange(std::vector<std::uint8_t>& bytes, const Intake& intake) {
    const std::uint64_t skipped = std::min<std::uint64_t>(intake.skip, bytes.size());
    bytes.erase(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(skipped));
    const auto group = static_cast<std::ptrdiff_t>(intake.swap);
    for (auto at = bytes.begin(); group > 1 && bytes.end() - at >= group; at += group) {
        std::reverse(at, at + group);
    }
}

}  // namespace

std::vector<std::uint8_t> loadDump(const std::string& path, const Intake& intake, Kinds kinds) {
    const bool standardInput = path == "-";
    const FileDescriptor file(
        standardInput ? STDIN_FILENO : open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    struct stat status {};
    if (file.get() < 0 || fstat(file.get(), &status) != 0) {
        throw text::Refused(path, whyNotOpened(path, errno));
    }
    if (S_ISDIR(status.st_mode)) {
        throw text::Refused(path, "is a directory");
    }
    if (kinds == Kinds::OnlyRegular && !S_ISREG(status.st_mode)) {
        throw text::Refused(path, "is not a regular file");
    }
    // Room for one byte more stays countable.
    const std::uint64_t limit = std::min<std::uint64_t>(
        intake.maxSize, static_cast<std::uint64_t>(std::numeric_limits<std::ptrdiff_t>::max()) / 4);
    const std::uint64_t expected =
        S_ISREG(status.st_mode) ? static_cast<std::uint64_t>(status.st_size) : 0;
    std::vector<std::uint8_t> bytes;
    if (expected <= limit && !readAll(file.get(), expected, limit, bytes)) {
        throw text::Refused(path, text::errnoText(errno));
    }
    if (std::max<std::uint64_t>(expected, bytes.size()) > limit) {
        throw text::Refused(path, tooLarge(limit));
    }
    if (bytes.empty()) {
        const bool idlePipe = S_ISFIFO(status.st_mode) && !standardInput;
        throw text::Refused(path, idlePipe ? "is a pipe that nobody writes to" : "is empty");
    }
    arrange(bytes, intake);
    if (bytes.empty()) {
        throw text::Refused(path, "has no bytes behind those of --skip");
    }
    return bytes;
}

}  // namespace calcut::files
