#include "tools/compare/Compare.h"

#include <cstdio>
#include <exception>
#include <new>

#include <nlohmann/json.hpp>

#include "tools/commands.h"
#include "tools/compare/CompareText.h"
#include "tools/compare/CompareTree.h"
#include "tools/compare/LoadedModule.h"
#include "tools/terminal/OutputFile.h"
#include "tools/terminal/Terminal.h"

namespace calcut::tools {

namespace {

void write(const Json& tree, bool json) {
    if (json) {
        const std::string text = tree.dump(2, ' ', false, Json::error_handler_t::replace) + '\n';
        (void)std::fwrite(text.data(), 1, text.size(), stdout);
    } else {
        print(compareText(tree, {terminalWidth(stdout), [](Colour colour, std::string_view text) {
                                     return paint(stdout, colour, text);
                                 }}));
    }
}

bool writePicture(const LoadedModule& a, const LoadedModule& b, const std::string& output,
                  DrawDifferences draw) {
    const std::vector<std::uint8_t> picture = draw(a.diagnosis, b.diagnosis, output);
    if (picture.empty()) {
        printError(output, "the picture could not be made (not enough memory?)");
        return false;
    }
    return writeOutput(output, picture);
}

int compare(const CompareOptions& options, DrawDifferences draw) {
    if (!options.output.empty()) {
        const std::string why = whyNotWritable(options.output, {options.a, options.b});
        if (!why.empty()) {
            printError(options.output, why);
            return exitNotCompared;
        }
    }
    // Both are tried, so that one run tells about both.
    const auto a = loadModule(options.a, options.layout, options.maxSize);
    const auto b = loadModule(options.b, options.layout, options.maxSize);
    if (!a || !b) {
        return exitNotCompared;
    }
    const Json tree =
        compareTree({options.a, a->diagnosis}, {options.b, b->diagnosis}, options.tolerance);
    if (!options.output.empty() && !writePicture(*a, *b, options.output, draw)) {
        return exitNotCompared;
    }
    write(tree, options.json);
    if (!finishStdout()) {
        return exitNotCompared;
    }
    return tree["equal"].get<bool>() ? exitOk : exitFailed;
}

}  // namespace

int runCompare(const CompareOptions& options, DrawDifferences draw) {
    // To whoever asks by the exit status, nothing that goes wrong may look like a difference.
    try {
        return compare(options, draw);
    } catch (const std::bad_alloc&) {
        printError("", "not enough memory");
    } catch (const std::exception& error) {
        printError("", error.what());
    }
    return exitNotCompared;
}

}  // namespace calcut::tools
