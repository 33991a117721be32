#include "Output.h"

#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <memory>
#include <system_error>

#include <fmt/format.h>

namespace calcut::tools {

namespace {

struct FileCloser {
    void operator()(std::FILE* file) const {
        // Whoever cares about the result closes the file before.
        (void)std::fclose(file);
    }
};
using FilePtr = std::unique_ptr<std::FILE, FileCloser>;

std::string reasonOf(int error) {
    return std::generic_category().message(error);
}

void printLine(const std::string& line) {
    // There is no one left to tell when standard error does not take it.
    (void)std::fwrite(line.data(), 1, line.size(), stderr);
}

bool writeAll(std::FILE* file, std::span<const std::uint8_t> bytes) {
    return std::fwrite(bytes.data(), 1, bytes.size(), file) == bytes.size() &&
           std::fflush(file) == 0;
}

// Devices, pipes and links are written where they are, not replaced by a new file.
bool replaceable(const std::string& path) {
    struct stat status {};
    return lstat(path.c_str(), &status) != 0 || S_ISREG(status.st_mode);
}

// errno, or 0 for success.
int writeFile(const std::string& path, std::span<const std::uint8_t> bytes) {
    FilePtr file(std::fopen(path.c_str(), "wb"));
    if (!file || !writeAll(file.get(), bytes)) {
        return errno;
    }
    return std::fclose(file.release()) == 0 ? 0 : errno;
}

}  // namespace

bool wantsColour(std::FILE* stream) {
    const char* noColour = std::getenv("NO_COLOR");
    return (noColour == nullptr || *noColour == '\0') && isatty(fileno(stream)) != 0;
}

std::string paint(std::FILE* stream, Colour colour, const std::string& text) {
    if (!wantsColour(stream)) {
        return text;
    }
    int code = 0;
    switch (colour) {
        case Colour::Red:
            code = 31;
            break;
        case Colour::Green:
            code = 32;
            break;
        case Colour::Yellow:
            code = 33;
            break;
        case Colour::Bold:
            code = 1;
            break;
        case Colour::Dim:
            code = 2;
            break;
    }
    return fmt::format("\x1b[{}m{}\x1b[0m", code, text);
}

void printError(const std::string& subject, const std::string& reason) {
    printLine(fmt::format("{} {}{}{}\n", paint(stderr, Colour::Red, "calcut:"), subject,
                          subject.empty() ? "" : ": ", reason));
}

void printWarning(const std::string& subject, const std::string& reason) {
    printLine(fmt::format("{} {}{}{}\n", paint(stderr, Colour::Yellow, "calcut: warning:"), subject,
                          subject.empty() ? "" : ": ", reason));
}

bool writeOutput(const std::string& path, std::span<const std::uint8_t> bytes) {
    if (path == "-") {
        if (!writeAll(stdout, bytes)) {
            printError("standard output", reasonOf(errno));
            return false;
        }
        return true;
    }
    if (!replaceable(path)) {
        const int error = writeFile(path, bytes);
        if (error != 0) {
            printError(path, reasonOf(error));
        }
        return error == 0;
    }
    const std::string partial = fmt::format("{}.partial-{}", path, getpid());
    int error = writeFile(partial, bytes);
    if (error == 0 && std::rename(partial.c_str(), path.c_str()) != 0) {
        error = errno;
    }
    if (error != 0) {
        unlink(partial.c_str());
        printError(path, reasonOf(error));
    }
    return error == 0;
}

std::string whyNotWritable(const std::string& path) {
    std::error_code error;
    if (std::filesystem::is_directory(path, error)) {
        return reasonOf(EISDIR);
    }
    std::filesystem::path folder = std::filesystem::path(path).parent_path();
    if (folder.empty()) {
        folder = ".";
    }
    return access(folder.c_str(), W_OK | X_OK) == 0 ? std::string() : reasonOf(errno);
}

bool finishStdout() {
    if (std::fflush(stdout) == 0 && std::ferror(stdout) == 0) {
        return true;
    }
    const std::string reason = reasonOf(errno);
    pollfd readers{STDOUT_FILENO, POLLOUT, 0};
    if (poll(&readers, 1, 0) > 0 && (readers.revents & POLLERR) != 0) {
        return true;
    }
    printError("standard output", reason);
    return false;
}

}  // namespace calcut::tools
