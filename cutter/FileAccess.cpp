#include "cutter/FileAccess.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

namespace {

constexpr mode_t newFileMode = 0666;  // less the umask

bool holdsNoBytes(const struct stat& status) {
    return S_ISDIR(status.st_mode) || S_ISFIFO(status.st_mode) || S_ISSOCK(status.st_mode);
}

// An open file that holds bytes, or none. Programs that the host starts do not inherit it.
class File {
  public:
    File(const std::string& path, int flags) {
        // Not even opened: that could wake up who waits at the other end of a pipe.
        struct stat status = {};
        if (::stat(path.c_str(), &status) == 0 && holdsNoBytes(status)) {
            return;
        }
        do {
            // A pipe that took the file's place just now must not hang the host.
            file_ = ::open(path.c_str(), flags | O_CLOEXEC | O_NOCTTY | O_NONBLOCK, newFileMode);
        } while (file_ < 0 && errno == EINTR);
        if (isOpen() && (::fstat(file_, &status) != 0 || holdsNoBytes(status))) {
            ::close(file_);
            file_ = -1;
        } else if (isOpen() && !S_ISREG(status.st_mode)) {
            ::fcntl(file_, F_SETFL, flags & O_ACCMODE);  // devices are waited for
        }
    }
    File(const File&) = delete;
    File& operator=(const File&) = delete;
    ~File() {
        if (isOpen()) {
            ::close(file_);
        }
    }

    [[nodiscard]] bool isOpen() const { return file_ >= 0; }

    /// Not above 0 where there is no size. The file stands at its start afterwards.
    [[nodiscard]] std::int64_t size() const {
        const std::int64_t end = ::lseek(file_, 0, SEEK_END);
        return ::lseek(file_, 0, SEEK_SET) == 0 ? end : 0;
    }

    /// Hands transfer(descriptor, bytes, count), which reads or writes, what is left of the bytes
    /// until all are moved, the file ends, or an error comes.
    template <class Byte, class Transfer>
    void moveAll(Byte* bytes, std::size_t size, Transfer transfer) const {
        while (size > 0) {
            const ssize_t moved = transfer(file_, bytes, size);
            if (moved > 0) {
                bytes += moved;
                size -= static_cast<std::size_t>(moved);
            } else if (moved == 0 || errno != EINTR) {
                return;
            }
        }
    }

  private:
    int file_ = -1;
};

}  // namespace

FileContent readFile(const std::string& path, std::size_t limit) {
    FileContent content;
    const File file(path, O_RDONLY);
    const std::int64_t size = file.isOpen() ? file.size() : 0;
    if (size <= 0) {
        return content;
    }
    content.size = static_cast<std::uint64_t>(size);
    const std::uint64_t wanted =
        limit == 0 ? content.size : std::min<std::uint64_t>(limit, content.size);
    content.bytes.resize(static_cast<std::size_t>(wanted));
    file.moveAll(
        content.bytes.data(), content.bytes.size(),
        [](int from, std::uint8_t* to, std::size_t count) { return ::read(from, to, count); });
    return content;
}

ByteBuffer readWholeFile(const std::string& path) {
    return readFile(path, 0).bytes;
}

bool writeWholeFile(const std::string& path, const void* bytes, std::size_t size) {
    const File file(path, O_WRONLY | O_CREAT | O_TRUNC);
    if (!file.isOpen()) {
        return false;
    }
    file.moveAll(static_cast<const std::uint8_t*>(bytes), size,
                 [](int to, const std::uint8_t* from, std::size_t count) {
                     return ::write(to, from, count);
                 });
    return true;
}
