#include "tools/text/Terminal.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <new>
#include <system_error>

#include <fmt/format.h>

#include "tools/text/Escape.h"

namespace calcut::text {

namespace {

TerminalSettings current;

/// errno of the first failed write to standard output.
int stdoutError = 0;

bool isSet(const char* variable) {
    const char* value = std::getenv(variable);
    return value != nullptr && *value != '\0';
}

bool wantsColour(std::FILE* stream) {
    if (current.colour != ColourMode::Auto) {
        return current.colour == ColourMode::Always;
    }
    const char* kind = std::getenv("TERM");
    return !isSet("NO_COLOR") && (kind == nullptr || std::strcmp(kind, "dumb") != 0) &&
           isatty(fileno(stream)) != 0;
}

/// Whether the last line on standard error is a status.
std::atomic<bool> statusShown = false;

const char* eraseStatus() {
    return statusShown.exchange(false) ? "\r\x1b[K" : "";
}

// One write, so that lines of several threads do not mix. There is no one left to tell when
// standard error does not take it.
void printLine(Colour colour, const char* head, std::string_view subject, std::string_view reason) {
    const std::string line =
        fmt::format("{}{} {}{}{}\n", eraseStatus(), paint(stderr, colour, head),
                    escapePath(subject), subject.empty() ? "" : ": ", escapePath(reason));
    (void)std::fwrite(line.data(), 1, line.size(), stderr);
}

constexpr std::array<int, 3> watched = {SIGINT, SIGTERM, SIGHUP};

std::atomic<int> noted = 0;
static_assert(std::atomic<int>::is_always_lock_free);

std::array<struct sigaction, watched.size()> former;

void note(int signal) {
    noted = signal;
}

}  // namespace

void setTerminal(const TerminalSettings& settings) {
    current = settings;
}

const TerminalSettings& terminal() {
    return current;
}

std::size_t terminalWidth(std::FILE* stream) {
    winsize size{};
    if (isatty(fileno(stream)) == 0) {
        return 0;
    }
    constexpr std::size_t usual = 80;
    return ioctl(fileno(stream), TIOCGWINSZ, &size) == 0 && size.ws_col > 0 ? size.ws_col : usual;
}

std::string paint(std::FILE* stream, Colour colour, std::string_view text) {
    if (!wantsColour(stream)) {
        return std::string(text);
    }
    constexpr int codes[] = {31, 32, 33, 1, 2};
    return fmt::format("\x1b[{}m{}\x1b[0m", codes[static_cast<std::size_t>(colour)], text);
}

void printError(std::string_view subject, std::string_view reason) {
    printLine(Colour::Red, "calcut:", subject, reason);
}

void printWarning(std::string_view subject, std::string_view reason) {
    if (current.verbosity != Verbosity::Quiet) {
        printLine(Colour::Yellow, "calcut: warning:", subject, reason);
    }
}

void printNote(std::string_view subject, std::string_view reason) {
    if (current.verbosity == Verbosity::Verbose) {
        printLine(Colour::Dim, "calcut:", subject, reason);
    }
}

void showStatus(std::string_view line) {
    const std::string text = fmt::format("{}{}", eraseStatus(), line);
    statusShown = !line.empty();
    (void)std::fwrite(text.data(), 1, text.size(), stderr);
}

std::string errnoText(int error) {
    return std::generic_category().message(error);
}

const char* reasonOf(const std::exception& error) {
    if (const auto* system = dynamic_cast<const std::filesystem::filesystem_error*>(&error)) {
        thread_local std::string message;
        message = system->code().message();
        return message.c_str();
    }
    const bool memory = dynamic_cast<const std::bad_alloc*>(&error) != nullptr;
    return memory ? "not enough memory" : error.what();
}

void print(std::string_view text) {
    if (current.verbosity != Verbosity::Quiet) {
        writeStdout(text);
    }
}

void writeStdout(std::string_view text) {
    if (std::fwrite(text.data(), 1, text.size(), stdout) != text.size() && stdoutError == 0) {
        stdoutError = errno;
    }
}

void finishStdout() {
    static bool told = false;
    if (std::fflush(stdout) != 0 && stdoutError == 0) {
        stdoutError = errno;
    }
    // What is written to a pipe whose reader is gone is nobody's loss.
    const bool lost = (stdoutError != 0 || std::ferror(stdout) != 0) && stdoutError != EPIPE;
    if (lost && !std::exchange(told, true)) {
        throw Refused("standard output",
                      stdoutError != 0 ? errnoText(stdoutError) : "cannot be written");
    }
}

InterruptGuard::InterruptGuard() {
    noted = 0;
    for (std::size_t i = 0; i < watched.size(); ++i) {
        struct sigaction action {};
        action.sa_handler = note;
        action.sa_flags = static_cast<int>(SA_RESETHAND);
        sigaction(watched[i], nullptr, &former[i]);
        if (former[i].sa_handler != SIG_IGN) {
            sigaction(watched[i], &action, nullptr);
        }
    }
}

InterruptGuard::~InterruptGuard() {
    for (std::size_t i = 0; i < watched.size(); ++i) {
        sigaction(watched[i], &former[i], nullptr);
    }
}

bool InterruptGuard::interrupted() {
    return noted != 0;
}

int guarded(const std::function<int()>& work, int failed) {
    try {
        return work();
    } catch (const Refused& refused) {
        printError(refused.subject(), refused.what());
    } catch (const std::exception& error) {
        printError("", reasonOf(error));
    }
    return failed;
}

int runMain(int (*work)(int argc, char** argv), int argc, char** argv) {
    // A reader that goes away and a file that may not grow are met as failed writes.
    (void)std::signal(SIGPIPE, SIG_IGN);
    (void)std::signal(SIGXFSZ, SIG_IGN);
    const int exitCode = guarded([&] { return work(argc, argv); }, exitFailed);
    const auto finish = [] {
        finishStdout();
        return exitOk;
    };
    const int finished = guarded(finish, exitFailed);
    if (noted != 0) {
        (void)std::raise(noted);
    }
    return exitCode != exitOk ? exitCode : finished;
}

}  // namespace calcut::text
