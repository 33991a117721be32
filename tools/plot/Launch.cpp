#include "tools/plot/Launch.h"

#include <unistd.h>

#include <array>
#include <cerrno>
#include <climits>
#include <string>
#include <system_error>
#include <vector>

#include <fmt/format.h>

#include "tools/commands.h"
#include "tools/terminal/Terminal.h"

namespace calcut::tools {

namespace {

// The folder of the running program; empty when the system does not tell.
std::string ownFolder() {
    std::array<char, PATH_MAX> path{};
    const ssize_t length = readlink("/proc/self/exe", path.data(), path.size());
    const std::string program(path.data(), length > 0 ? static_cast<std::size_t>(length) : 0);
    return program.substr(0, program.find_last_of('/'));
}

using Words = std::vector<std::string>;

/// Becomes calcut-plot with these words behind its name; comes back when it cannot.
void become(const Words& words) {
    const std::string folder = ownFolder();
    for (std::string program :
         {folder + "/calcut-plot", folder + "/../libexec/calcut/calcut-plot"}) {
        Words all = words;
        std::vector<char*> arguments = {program.data()};
        for (std::string& word : all) {
            arguments.push_back(word.data());
        }
        arguments.push_back(nullptr);
        execv(program.c_str(), arguments.data());
        if (errno != ENOENT) {
            printError(program, std::generic_category().message(errno));
            return;
        }
    }
    printError("", "calcut-plot is not installed: this build was made without Cairo");
}

std::string layoutWord(const std::optional<Layout>& layout) {
    return layout ? layoutName(*layout) : "auto";
}

Words terminalWords() {
    return {fmt::format("{}", static_cast<unsigned>(terminal().colour)),
            fmt::format("{}", static_cast<unsigned>(terminal().verbosity))};
}

}  // namespace

bool isPictureName(const std::string& name) {
    const std::size_t dot = name.find_last_of('.');
    const std::string ending = dot == std::string::npos ? "" : name.substr(dot);
    return name == "-" || ending == ".png" || ending == ".svg";
}

int launchPlot(const PlotOptions& options) {
    Words words = {options.input, options.output, layoutWord(options.layout),
                   fmt::format("{}", options.maxSize), options.sharedScale ? "1" : "0"};
    const Words more = terminalWords();
    words.insert(words.end(), more.begin(), more.end());
    become(words);
    return exitFailed;
}

int launchCompare(const CompareOptions& options) {
    Words words = {"compare",
                   options.a,
                   options.b,
                   options.output,
                   layoutWord(options.layout),
                   fmt::format("{}", options.maxSize),
                   options.json ? "1" : "0",
                   options.tolerance ? fmt::format("{}", *options.tolerance) : ""};
    const Words more = terminalWords();
    words.insert(words.end(), more.begin(), more.end());
    become(words);
    return exitNotCompared;
}

}  // namespace calcut::tools
