// The command line: what is asked for, and in which words. The only room that knows the parser.
#pragma once

#include <functional>
#include <string>

#include "tools/terminal/Terminal.h"

namespace CLI {
class App;
}

namespace calcut::tools {

/// What a command line asks for, once it is parsed.
struct Request {
    TerminalSettings terminal;
    std::function<int()> work;  ///< of the subcommand; returns the exit status
};

/// Adds every subcommand and option to the command. request must outlive it.
void addSubcommands(CLI::App& app, Request& request);

/// Writes into a directory: man pages (calcut.1, calcut-cut.1, ...) and completions (calcut.bash,
/// _calcut, calcut.fish). Returns the exit status.
int generateTexts(const CLI::App& app, const std::string& directory);

}  // namespace calcut::tools
