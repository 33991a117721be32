// The command line as a whole: parsing it, and what is said when that fails.
#include <algorithm>
#include <numeric>
#include <string>
#include <string_view>
#include <vector>

#include <fmt/format.h>
#include <CLI/CLI.hpp>

#include "tools/options/Help.h"
#include "tools/options/Options.h"
#include "tools/text/Escape.h"
#include "tools/text/Terminal.h"

namespace calcut::options {

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
    const auto distance = [&word](const CLI::App* command) {
        const std::string& name = command->get_name();
        return name.starts_with(word) ? 0 : editDistance(word, name);
    };
    const auto commands = app.get_subcommands({});
    const CLI::App* nearest = *std::ranges::min_element(commands, {}, distance);
    const bool isNear = distance(nearest) < std::max<std::size_t>(2, word.size() / 2);
    return isNear ? " (did you mean " + nearest->get_name() + "?)" : "";
}

int tellParseError(const CLI::App& app, const CLI::ParseError& error) {
    if (error.get_exit_code() == 0) {
        const bool version = error.get_name() == "CallForVersion";
        text::writeStdout(version ? error.what() + std::string("\n") : app.help());
        return exitOk;
    }
    const auto parsed = app.get_subcommands();
    const auto unknown = app.remaining();
    const std::string what =
        parsed.empty() && !unknown.empty()
            ? "no such subcommand: " + unknown.front() + suggestion(unknown.front(), app)
            : error.what();
    text::printError("", fmt::format("{} (calcut {}--help shows how)", text::escapePath(what),
                                     parsed.empty() ? "" : parsed.front()->get_name() + " "));
    return exitUsage;
}

int runCommandLine(int argc, char** argv) {
    Request request;
    CLI::App app(commandHelp.summary, commandHelp.name);
    app.set_version_flag("-V,--version", "calcut " CALCUT_VERSION, "Print the version and exit");
    app.footer(commandHelp.footer)->require_subcommand(1)->formatter(formatterFor(commandHelp));
    addOptions(app, request);
    app.add_subcommand("help", "Show this help, or that of a subcommand");
    // No option takes one, and as a path it would be a riddle.
    if (std::any_of(argv + 1, argv + argc, [](const char* word) { return *word == '\0'; })) {
        text::printError("", "an argument is empty (is a variable of the shell not set?)");
        return exitUsage;
    }
    try {
        // "calcut help cut" is "calcut cut --help". The parser takes the words from behind.
        std::vector<std::string> words(argv + 1, argv + argc);
        if (!words.empty() && words.front() == "help") {
            words.erase(words.begin());
            const auto isNamed = [&](const CLI::App* sub) { return sub->check_name(words[0]); };
            if (words.empty() || std::ranges::any_of(app.get_subcommands({}), isNamed)) {
                words.emplace_back("--help");
            }
        }
        app.parse(std::vector<std::string>(words.rbegin(), words.rend()));
    } catch (const CLI::ParseError& error) {
        return tellParseError(app, error);
    }
    text::setTerminal(request.terminal);
    return request.work();
}

}  // namespace

}  // namespace calcut::options

int main(int argc, char** argv) {
    return calcut::text::runMain(calcut::options::runCommandLine, argc, argv);
}
