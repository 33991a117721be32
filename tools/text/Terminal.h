// How the command talks to people: one-line errors and warnings, colours, standard output, signals,
// exit statuses.
//
// Each subcommand is a plain struct of options and a function that does the work and returns the
// exit status; tools/options/ alone knows how a command line is written. runMain prints whatever
// exception leaves the work, flushes standard output and tells when that fails.
#pragma once

#include <cstdint>
#include <cstdio>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>

#include <fmt/format.h>

namespace calcut {

/// Exit statuses of the command.
inline constexpr int exitOk = 0;      ///< everything asked for was done
inline constexpr int exitFailed = 1;  ///< a dump, calibration or file was refused or not written
inline constexpr int exitUsage = 2;   ///< the command line itself is wrong

}  // namespace calcut

namespace calcut::text {

enum class ColourMode : std::uint8_t {
    Auto,  ///< on a terminal, unless NO_COLOR is set (and not empty) or TERM is "dumb"
    Always,
    Never
};

enum class Verbosity : std::uint8_t {
    Quiet,  ///< errors only
    Normal,
    Verbose  ///< also what is being done
};

/// Set once, before anything is printed.
struct TerminalSettings {
    ColourMode colour = ColourMode::Auto;
    Verbosity verbosity = Verbosity::Normal;
};
void setTerminal(const TerminalSettings& settings);
const TerminalSettings& terminal();

/// Columns of the terminal behind a stream; 0 when it is none.
std::size_t terminalWidth(std::FILE* stream);

/// text in the given colour when the stream takes colours, else text unchanged.
enum class Colour : std::uint8_t { Red, Green, Yellow, Bold, Dim };
std::string paint(std::FILE* stream, Colour colour, std::string_view text);

// One line on standard error each, "calcut: SUBJECT: REASON", whole even from several threads.
// subject is a path as it was given, or empty. Both are escaped here.
void printError(std::string_view subject, std::string_view reason);
/// For something that is odd but no failure; nothing when quiet.
void printWarning(std::string_view subject, std::string_view reason);
/// What is being done; only when verbose.
void printNote(std::string_view subject, std::string_view reason);

/// A line on standard error that stays until the next line or status is printed; empty: none. For
/// a terminal.
void showStatus(std::string_view line);

/// What ends the work where it is thrown; runMain prints it as printError does.
class Refused : public std::runtime_error {
  public:
    Refused(std::string subject, const std::string& reason)
        : std::runtime_error(reason),
          subject_(std::make_shared<const std::string>(std::move(subject))) {}
    template <class First, class... Rest>
    Refused(std::string subject, fmt::format_string<First, Rest...> reason, First&& first,
            Rest&&... rest)
        : Refused(std::move(subject),
                  fmt::format(reason, std::forward<First>(first), std::forward<Rest>(rest)...)) {}
    /// A path as it was given, or empty.
    [[nodiscard]] const std::string& subject() const { return *subject_; }

  private:
    std::shared_ptr<const std::string> subject_;  ///< copies of an exception must not throw
};

/// What errno says, in words: "No such file or directory".
std::string errnoText(int error);

/// Unless the error is 0, throws Refused with what was tried and what errno says.
template <class... Args>
void check(int error, const std::string& subject, fmt::format_string<Args...> tried,
           Args&&... args) {
    if (error != 0) {
        throw Refused(subject, "{}: {}", fmt::format(tried, std::forward<Args>(args)...),
                      errnoText(error));
    }
}

/// The reason in any exception, for people, without the path that one of the file system carries.
/// Points into the exception, or to a text that stays until the thread's next call; want of memory
/// takes no memory to tell.
const char* reasonOf(const std::exception& error);

/// Text for people on standard output; nothing when quiet.
void print(std::string_view text);

/// Data that was asked for, on standard output. finishStdout tells about a failure.
void writeStdout(std::string_view text);

/// Flushes standard output. Throws Refused, once, when not everything could be written; a reader
/// that merely went away (as head does) is no error. runMain calls it for every subcommand.
void finishStdout();

/// While one exists, SIGINT, SIGTERM and SIGHUP only leave a note; a second one ends the process at
/// once. Signals that were ignored stay so. At its end runMain ends the process by a signal that
/// was noted, so that a shell sees what happened.
class InterruptGuard {
  public:
    InterruptGuard();
    InterruptGuard(const InterruptGuard&) = delete;
    InterruptGuard& operator=(const InterruptGuard&) = delete;
    ~InterruptGuard();

    /// Whether a signal came. Any thread may ask.
    static bool interrupted();
};

/// The exit status of the work, or failed, with a printed error, where it throws.
int guarded(const std::function<int()>& work, int failed);

/// The body of main: runs the work, tells about what it throws, finishes standard output, and ends
/// by the signal that an InterruptGuard noted. Returns the exit status.
int runMain(int (*work)(int argc, char** argv), int argc, char** argv);

}  // namespace calcut::text
