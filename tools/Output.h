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

/// Writes a file, or standard output for "-". False with a printed error naming the path when that
/// fails; a file of that name is then removed again.
bool writeOutput(const std::string& path, std::span<const std::uint8_t> bytes);

/// Flushes standard output; false (with a printed error unless the reader merely went away) when
/// not everything could be written. Call it last, before a successful exit.
bool finishStdout();

}  // namespace calcut::tools
