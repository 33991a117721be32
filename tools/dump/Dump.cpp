#include "tools/dump/Dump.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <limits>
#include <string_view>
#include <system_error>
#include <utility>

#include <fmt/format.h>

#include "calibration/packed/Block.h"
#include "cutter/korvelineImage.h"
#include "cutter/v7Image.h"
#include "tools/dump/Names.h"

namespace calcut::tools {

namespace {

class FileDescriptor {
  public:
    explicit FileDescriptor(int descriptor) : descriptor_(descriptor) {}
    FileDescriptor(const FileDescriptor&) = delete;
    FileDescriptor& operator=(const FileDescriptor&) = delete;
    ~FileDescriptor() {
        if (descriptor_ > STDERR_FILENO) {
            close(descriptor_);
        }
    }
    [[nodiscard]] int get() const { return descriptor_; }

  private:
    int descriptor_;
};

std::string sizeText(std::uint64_t bytes) {
    constexpr std::uint64_t step = 1024;
    std::size_t unit = 0;
    while (unit < 3 && bytes != 0 && bytes % step == 0) {
        bytes /= step;
        ++unit;
    }
    return unit == 0 ? byteCount(bytes) : fmt::format("{} {}iB", bytes, "KMG"[unit - 1]);
}

std::string tooLarge(std::uint64_t limit) {
    return fmt::format("is larger than {}, the limit for a dump (--max-size)", sizeText(limit));
}

// Why a file is not even read; empty when it is worth a try.
std::string refusalOf(const struct stat& status, std::uint64_t limit) {
    if (S_ISDIR(status.st_mode)) {
        return "is a directory";
    }
    return S_ISREG(status.st_mode) && static_cast<std::uint64_t>(status.st_size) > limit
               ? tooLarge(limit)
               : std::string();
}

std::string whyNotOpened(const std::string& path, int error) {
    struct stat status {};
    const bool isSocket =
        error == ENXIO && stat(path.c_str(), &status) == 0 && S_ISSOCK(status.st_mode);
    return isSocket ? "is a socket" : errnoText(error);
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

}  // namespace

std::string errnoText(int error) {
    return std::generic_category().message(error);
}

const char* layoutName(Layout layout) {
    switch (layout) {
        case Layout::V7:
            return "v7";
        case Layout::Korveline:
            return "korveline";
        case Layout::Packed:
            return "packed";
        default:
            return "unknown";
    }
}

std::string_view magicOf(Layout layout) {
    switch (layout) {
        case Layout::V7:
            return image::v7::magic;
        case Layout::Korveline:
            return image::korveline::magic;
        case Layout::Packed:
            return {vantric::packedMagic.data(), vantric::packedMagic.size()};
        default:
            return {};
    }
}

Layout classify(ByteView file) {
    const std::string_view start(reinterpret_cast<const char*>(file.data()), file.size());
    for (const Layout known : knownLayouts) {
        if (start.starts_with(magicOf(known))) {
            return known;
        }
    }
    return Layout::Unknown;
}

Dump loadDump(const std::string& path, std::uint64_t maxSize) {
    Dump dump;
    const bool standardInput = path == "-";
    const FileDescriptor file(
        standardInput ? STDIN_FILENO : open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    struct stat status {};
    if (file.get() < 0 || fstat(file.get(), &status) != 0) {
        dump.error = whyNotOpened(path, errno);
        return dump;
    }
    if (!standardInput) {
        dump.identity = FileIdentity{status.st_dev, status.st_ino};
    }
    // Room for one byte more stays countable.
    const std::uint64_t limit = std::min<std::uint64_t>(
        maxSize, static_cast<std::uint64_t>(std::numeric_limits<std::ptrdiff_t>::max()) / 4);
    dump.error = refusalOf(status, limit);
    if (!dump.error.empty()) {
        return dump;
    }
    const std::uint64_t expected =
        S_ISREG(status.st_mode) ? static_cast<std::uint64_t>(status.st_size) : 0;
    if (!readAll(file.get(), expected, limit, dump.bytes)) {
        dump.error = errnoText(errno);
    } else if (dump.bytes.size() > limit) {
        dump.error = tooLarge(limit);
    } else if (dump.bytes.empty()) {
        dump.error = S_ISFIFO(status.st_mode) && !standardInput ? "is a pipe that nobody writes to"
                                                                : "is empty";
    }
    if (!dump.error.empty()) {
        dump.bytes.clear();
    }
    return dump;
}

}  // namespace calcut::tools
