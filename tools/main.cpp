// The calcut command.
#include <algorithm>
#include <numeric>
#include <string_view>

#include <fmt/format.h>
#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>

#include "tools/commands.h"
#include "tools/options/CommandLine.h"
#include "tools/terminal/Escape.h"

namespace calcut::tools {

namespace {

std::size_t editDistance(std::string_view one, std::string_view other) {
    std::vector<std::size_t> row(other.size() + 1);
    std::iota(row.begin(), row.end(), std::size_t{0});
    for (const char letter : one) {
        std::size_t diagonal = row[0]++;
        for (std::size_t j = 0; j < other.size(); ++j) {
            const std::size_t changed = diagonal + (letter == other[j] ? 0 : 1);
            diagonal = row[j + 1];
            row[j + 1] = std::min({changed, row[j] + 1, diagonal + 1});
        }
    }
    return row.back();
}

// What somebody may have meant by a word; empty when nothing is near.
std::string suggestion(const std::string& word, const CLI::App& app) {
    std::string best;
    std::size_t least = std::max<std::size_t>(2, word.size() / 2);
    for (const CLI::App* command : app.get_subcommands({})) {
        const std::string& name = command->get_name();
        const std::size_t distance = name.starts_with(word) ? 0 : editDistance(word, name);
        if (distance < least) {
            least = distance;
            best = " (did you mean " + name + "?)";
        }
    }
    return best;
}

int tellParseError(const CLI::App& app, const CLI::ParseError& error) {
    if (error.get_exit_code() == static_cast<int>(CLI::ExitCodes::Success)) {
        const bool version = error.get_name() == "CallForVersion";
        writeStdout(version ? error.what() + std::string("\n") : app.help());
        return exitOk;
    }
    const auto parsed = app.get_subcommands();
    const auto unknown = app.remaining();
    const std::string what =
        parsed.empty() && !unknown.empty()
            ? "no such subcommand: " + unknown.front() + suggestion(unknown.front(), app)
            : error.what();
    printError("", fmt::format("{} (calcut {}--help shows how)", escapePath(what),
                               parsed.empty() ? "" : parsed.front()->get_name() + " "));
    return exitUsage;
}

int runCommandLine(int argc, char** argv) {
    Request request;
    CLI::App app("Cuts EEPROM dumps of depth camera modules, and shows what is in them.", "calcut");
    app.set_version_flag("-V,--version", "calcut " CALCUT_VERSION, "Print the version and exit");
    addSubcommands(app, request);
    // For the build, which makes man pages and completions of these texts.
    if (argc == 3 && std::string_view(argv[1]) == "--generate") {
        return generateTexts(app, argv[2]);
    }
    // No option takes one, and as a path it would be a riddle.
    if (std::any_of(argv + 1, argv + argc, [](const char* word) { return *word == '\0'; })) {
        printError("", "an argument is empty (is a variable of the shell not set?)");
        return exitUsage;
    }
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return tellParseError(app, error);
    }
    setTerminal(request.terminal);
    return request.work();
}

}  // namespace

}  // namespace calcut::tools

int main(int argc, char** argv) {
    return calcut::tools::runMain(calcut::tools::runCommandLine, argc, argv);
}
