#include "cutter/FileAccess.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace {

constexpr mode_t newFileMode = 0666;  // less the umask

bool holdsNoBytes(const struct stat& status) {
    return S_ISDIR(status.st_mode) || S_ISFIFO(status.st_mode) || S_ISSOCK(status.st_mode);
}

// Descriptor of a file that holds bytes, or -1. Programs that the host starts do not inherit it.
int openFile(const std::string& path, int flags) {
    // Not even opened: that could wake up who waits at the other end of a pipe.
    struct stat status = {};
    if (::stat(path.c_str(), &status) == 0 && holdsNoBytes(status)) {
        return -1;
    }
    int file = -1;
    do {
        // A pipe that took the file's place just now must not hang the host.
        file = ::open(path.c_str(), flags | O_CLOEXEC | O_NOCTTY | O_NONBLOCK, newFileMode);
    } while (file < 0 && errno == EINTR);
    if (file >= 0 && (::fstat(file, &status) != 0 || holdsNoBytes(status))) {
        ::close(file);
        return -1;
    }
    if (file >= 0 && !S_ISREG(status.st_mode)) {
        ::fcntl(file, F_SETFL, flags & O_ACCMODE);  // devices are waited for
    }
    return file;
}

// Hands transfer(bytes, count), which reads or writes, what is left of the bytes until all are
// moved, the file ends, or an error comes. Returns how many were not moved.
template <class Byte, class Transfer>
std::size_t moveAll(Byte* bytes, std::size_t size, Transfer transfer) {
    while (size > 0) {
        const ssize_t moved = transfer(bytes, size);
        if (moved > 0) {
            bytes += moved;
            size -= static_cast<std::size_t>(moved);
        } else if (moved == 0 || errno != EINTR) {
            break;
        }
    }
    return size;
}

}  // namespace

InputFile::InputFile(const std::string& path) : file_(openFile(path, O_RDONLY)) {
    if (file_ >= 0) {
        const std::int64_t end = ::lseek(file_, 0, SEEK_END);
        const bool hasSize = end > 0 && ::lseek(file_, 0, SEEK_SET) == 0;
        size_ = hasSize ? static_cast<std::uint64_t>(end) : 0;
    }
}

InputFile::~InputFile() {
    if (file_ >= 0) {
        ::close(file_);
    }
}

void InputFile::read(std::uint8_t* to, std::size_t count) const {
    const std::size_t missing = moveAll(to, count, [this](std::uint8_t* bytes, std::size_t size) {
        return ::read(file_, bytes, size);
    });
    std::memset(to + (count - missing), 0, missing);
}

bool writeWholeFile(const std::string& path, const void* bytes, std::size_t size) {
    const int file = openFile(path, O_WRONLY | O_CREAT | O_TRUNC);
    if (file < 0) {
        return false;
    }
    moveAll(
        static_cast<const std::uint8_t*>(bytes), size,
        [file](const std::uint8_t* from, std::size_t count) { return ::write(file, from, count); });
    ::close(file);
    return true;
}
