// The options of every subcommand, and in which words they are given.
#pragma once

#include <functional>

#include "tools/text/Terminal.h"

namespace CLI {
class App;
}

namespace calcut::options {

/// What a command line asks for, once it is parsed.
struct Request {
    text::TerminalSettings terminal;
    std::function<int()> work;  ///< of the subcommand; returns the exit status
};

/// Adds the subcommands, and the options that all of them have. Parsing fills the request, which
/// outlives the parser.
void addOptions(CLI::App& app, Request& request);

}  // namespace calcut::options
