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

}  // namespace

bool isPictureName(const std::string& name) {
    const std::size_t dot = name.find_last_of('.');
    const std::string ending = dot == std::string::npos ? "" : name.substr(dot);
    return name == "-" || ending == ".png" || ending == ".svg";
}

int launchPlot(const PlotOptions& options) {
    const std::string folder = ownFolder();
    std::vector<std::string> words = {
        "",
        options.input,
        options.output,
        options.layout ? layoutName(*options.layout) : "auto",
        fmt::format("{}", options.maxSize),
        options.sharedScale ? "1" : "0",
        fmt::format("{}", static_cast<unsigned>(terminal().colour)),
        fmt::format("{}", static_cast<unsigned>(terminal().verbosity))};
    for (const std::string& program :
         {folder + "/calcut-plot", folder + "/../libexec/calcut/calcut-plot"}) {
        words[0] = program;
        std::vector<char*> arguments;
        for (std::string& word : words) {
            arguments.push_back(word.data());
        }
        arguments.push_back(nullptr);
        execv(program.c_str(), arguments.data());
        if (errno != ENOENT) {
            printError(program, std::generic_category().message(errno));
            return exitFailed;
        }
    }
    printError("", "calcut-plot is not installed: this build was made without Cairo");
    return exitFailed;
}

}  // namespace calcut::tools
