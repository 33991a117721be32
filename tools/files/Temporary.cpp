#include "tools/files/Temporary.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <random>
#include <system_error>
#include <utility>

#include <fmt/format.h>

#include "tools/files/OutputFile.h"
#include "tools/text/Terminal.h"

namespace calcut::files {

namespace {

namespace fs = std::filesystem;

constexpr const char* prefix = ".calcut-part-";

struct stat statusOf(const FileDescriptor& file) {
    struct stat status {};
    (void)fstat(file.get(), &status);
    return status;
}

}  // namespace

FileDescriptor& FileDescriptor::operator=(FileDescriptor&& other) noexcept {
    std::swap(descriptor_, other.descriptor_);
    return *this;
}

FileDescriptor::~FileDescriptor() {
    if (descriptor_ > STDERR_FILENO) {
        close(descriptor_);
    }
}

int FileDescriptor::release() {
    return std::exchange(descriptor_, -1);
}

FolderLock::FolderLock(const std::string& folder) {
    for (;;) {
        folder_ = FileDescriptor(open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
        if (folder_.get() < 0) {
            throw text::Refused(folder, text::errnoText(errno));
        }
        // Asked again and again: a signal just before a call that waits would go unnoticed.
        constexpr int pause = 20;  // milliseconds
        for (bool told = false; flock(folder_.get(), LOCK_EX | LOCK_NB) != 0 &&
                                (errno == EWOULDBLOCK || errno == EINTR);) {
            if (text::InterruptGuard::interrupted()) {
                throw text::Refused(folder, "interrupted");
            }
            if (!std::exchange(told, true)) {
                text::printWarning(folder, "another command writes there; waiting for its end");
            }
            (void)poll(nullptr, 0, pause);
        }
        // Meanwhile another folder may have taken the name.
        const struct stat status = statusOf(folder_);
        if (identityOf(folder) == FileIdentity{status.st_dev, status.st_ino}) {
            return;
        }
    }
}

Temporary::Temporary(const std::string& parent, Kind kind) {
    constexpr mode_t all = 0777;
    constexpr mode_t readAndWrite = 0666;
    std::random_device random;
    for (;;) {
        path_ = fmt::format("{}/{}{:08x}", parent, prefix, random());
        const int made = kind == Kind::Folder ? mkdir(path_.c_str(), all) : 0;
        const int flags =
            kind == Kind::Folder ? O_RDONLY | O_DIRECTORY : O_WRONLY | O_CREAT | O_EXCL;
        file_ = FileDescriptor(
            made == 0 ? open(path_.c_str(), flags | O_CLOEXEC | O_NOFOLLOW, readAndWrite) : -1);
        if (file_.get() < 0 && errno != EEXIST) {
            throw text::Refused(parent, "cannot be written into: {}", text::errnoText(errno));
        }
        // Whoever looks for leftovers may have been faster than this lock.
        if (file_.get() >= 0 && (flock(file_.get(), LOCK_EX), statusOf(file_).st_nlink > 0)) {
            return;
        }
    }
}

void forEachLeftover(const std::string& folder,
                     const std::function<void(const std::string& path)>& remove) {
    std::error_code error;
    for (fs::directory_iterator entry(folder, error); !error && entry != fs::directory_iterator();
         entry.increment(error)) {
        const std::string path = entry->path().string();
        if (entry->path().filename().string().starts_with(prefix)) {
            const FileDescriptor file(
                open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
            if (file.get() >= 0 && flock(file.get(), LOCK_EX | LOCK_NB) == 0) {
                remove(path);
            }
        }
    }
}

int moveWithoutReplacing(const std::string& from, const std::string& to) {
    if (renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), RENAME_NOREPLACE) == 0) {
        return 0;
    }
    if (errno != EINVAL && errno != ENOSYS) {
        return errno;
    }
    // A file system that does not know the request.
    struct stat status {};
    if (lstat(to.c_str(), &status) == 0) {
        return EEXIST;
    }
    return std::rename(from.c_str(), to.c_str()) == 0 ? 0 : errno;
}

}  // namespace calcut::files
