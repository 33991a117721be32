#include "tools/compare/Compare.h"

#include <exception>
#include <new>

#include "tools/commands.h"
#include "tools/compare/CompareTree.h"
#include "tools/compare/LoadedModule.h"
#include "tools/terminal/OutputFile.h"
#include "tools/terminal/Terminal.h"

namespace calcut::tools {

namespace {

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
    if (options.json) {
        writeStdout(jsonText(tree));
    } else {
        print(compareText(tree, styleOfStdout()));
    }
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
