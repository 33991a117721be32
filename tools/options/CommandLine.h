// The command line: what is asked for, and in which words. The only room that knows the parser.
#pragma once

namespace calcut::tools {

/// Parses the command line and does what it asks for. Returns the exit status.
int runCommandLine(int argc, char** argv);

}  // namespace calcut::tools
