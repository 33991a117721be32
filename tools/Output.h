// What the subcommands share in talking to people: one-line errors, colours, file output.
#pragma once

#include <cstdint>
#include <cstdio>
#include <span>
#include <string>

namespace calcut::tools {

/// True when the stream is a terminal and NO_COLOR is not set (or empty).
bool wantsColour(std::FILE* stream);

/// text in the given colour when the stream wants it, else text unchanged.
enum class Colour { Red, Green, Yellow, Bold, Dim };
std::string paint(std::FILE* stream, Colour colour, const std::string& text);

/// One line on standard error: "calcut: SUBJECT: REASON". subject may be empty.
void printError(const std::string& subject, const std::string& reason);

/// As printError, for something that is odd but no failure: "calcut: warning: SUBJECT: REASON".
void printWarning(const std::string& subject, const std::string& reason);

/// Writes a file, or standard output for "-". A regular file gets its name only when it is
/// complete. False, with a printed error that names the path, when that fails.
bool writeOutput(const std::string& path, std::span<const std::uint8_t> bytes);

/// Why no file of this path can be written, as far as its folder tells; empty when nothing stands
/// against it. For work that would be lost if that came out at its end.
std::string whyNotWritable(const std::string& path);

/// Flushes standard output. False, with a printed error, when not everything could be written; a
/// reader that merely went away (as head does) is no error. main calls it for every subcommand.
bool finishStdout();

}  // namespace calcut::tools
