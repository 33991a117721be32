// How the command talks to people: one-line errors and warnings, colours, standard output.
#pragma once

#include <cstdint>
#include <cstdio>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>

namespace calcut::tools {

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
// subject is a path as it was given (it is escaped here) or empty.
void printError(std::string_view subject, std::string_view reason);
/// For something that is odd but no failure; nothing when quiet.
void printWarning(std::string_view subject, std::string_view reason);
/// What is being done; only when verbose.
void printNote(std::string_view subject, std::string_view reason);

/// What ends the work where it is thrown; runMain prints it as printError does.
class Refused : public std::runtime_error {
  public:
    Refused(std::string subject, const std::string& reason)
        : std::runtime_error(reason),
          subject_(std::make_shared<const std::string>(std::move(subject))) {}
    /// A path as it was given, or empty.
    [[nodiscard]] const std::string& subject() const { return *subject_; }

  private:
    std::shared_ptr<const std::string> subject_;  ///< copies of an exception must not throw
};

/// Throws Refused, unless the reason is empty.
void refuseFor(const std::string& subject, const std::string& reason);

/// The reason in any exception, for people.
const char* reasonOf(const std::exception& error);

/// Text for people on standard output; nothing when quiet.
void print(std::string_view text);

/// Data that was asked for, on standard output. finishStdout tells about a failure.
void writeStdout(std::string_view text);

/// Flushes standard output. False, with a printed error, when not everything could be written; a
/// reader that merely went away (as head does) is no error, and what was told once is not told
/// again. An outer main calls it for every subcommand.
bool finishStdout();

/// The body of main: runs the work, tells about what it throws, finishes standard output, and ends
/// by the signal that an InterruptGuard noted. Returns the exit status.
int runMain(int (*work)(int argc, char** argv), int argc, char** argv);

}  // namespace calcut::tools
