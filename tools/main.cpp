// The calcut command.
#include <csignal>
#include <cstdio>
#include <exception>
#include <iostream>
#include <new>
#include <string>
#include <system_error>

#include <fmt/format.h>

#include "commands.h"
#include "Output.h"

namespace {

constexpr const char* examples = R"(Examples:
  calcut make -o module.bin                      make a v7 dump to try things with
  calcut make --layout korveline --signature 64 -o signed.bin
  calcut cut module.bin out                      cut a dump into the existing folder out
  calcut cut line/*.bin --out cut --report cut.csv
  calcut inspect module.bin                      what is in a dump, or why it cannot be cut
  calcut plot module.bin -o module.png           its calibration as one sheet

Exit status: 0 everything was done, 1 a file was refused or could not be written,
2 the command line is wrong. Colours appear on a terminal only; NO_COLOR turns them off.
calcut SUBCOMMAND --help tells more.)";

int run(int argc, char** argv) {
    using namespace calcut::tools;

    CLI::App app("Cuts EEPROM dumps of depth camera modules, and shows what is in them.", "calcut");
    app.set_version_flag("--version", "calcut " CALCUT_VERSION, "Print the version and exit");
    app.require_subcommand(1);
    app.footer(examples);
    int exitCode = exitOk;
    addMakeCommand(app, exitCode);
    addCutCommand(app, exitCode);
    addInspectCommand(app, exitCode);
    addPlotCommand(app, exitCode);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        if (error.get_exit_code() == static_cast<int>(CLI::ExitCodes::Success)) {
            // --help or --version.
            app.exit(error, std::cout, std::cerr);
            std::cout.flush();
            return exitOk;
        }
        const auto parsed = app.get_subcommands();
        const auto unknown = app.remaining();
        printError("", fmt::format("{} (calcut {}--help shows how)",
                                   parsed.empty() && !unknown.empty()
                                       ? "no such subcommand: " + unknown.front()
                                       : error.what(),
                                   parsed.empty() ? "" : parsed.front()->get_name() + " "));
        return exitUsage;
    }
    return exitCode;
}

}  // namespace

int main(int argc, char** argv) {
    using namespace calcut::tools;

    // A reader that goes away is met as a failed write, not as a signal.
    (void)std::signal(SIGPIPE, SIG_IGN);
    int exitCode = exitFailed;
    try {
        exitCode = run(argc, argv);
    } catch (const std::bad_alloc&) {
        printError("", "not enough memory");
    } catch (const std::system_error& error) {
        // A failed print to standard output is told by finishStdout, where it has to be told.
        if (std::ferror(stdout) == 0) {
            printError("", error.what());
        } else {
            exitCode = exitOk;
        }
    } catch (const std::exception& error) {
        printError("", error.what());
    }
    if (!finishStdout() && exitCode == exitOk) {
        exitCode = exitFailed;
    }
    return exitCode;
}
