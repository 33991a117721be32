#include "tools/compare/Compare.h"

#include <exception>

#include "tools/commands.h"
#include "tools/compare/CompareTree.h"
#include "tools/compare/LoadedModule.h"
#include "tools/terminal/OutputFile.h"
#include "tools/terminal/Terminal.h"

namespace calcut::tools {

namespace {

int compare(const CompareOptions& options, DrawDifferences draw) {
    const bool draws = !options.output.empty();
    refuseFor(options.output,
              draws ? whyNotWritable(options.output, {options.a, options.b}) : std::string());
    // Both are tried, so that one run tells about both.
    const auto a = loadModule(options.a, options.layout, options.maxSize);
    const auto b = loadModule(options.b, options.layout, options.maxSize);
    if (!a || !b) {
        return exitNotCompared;
    }
    const Json tree =
        compareTree({options.a, a->diagnosis}, {options.b, b->diagnosis}, options.tolerance);
    if (draws) {
        const std::vector<std::uint8_t> picture = draw(a->diagnosis, b->diagnosis, options.output);
        refuseFor(options.output,
                  picture.empty() ? "the picture could not be made (not enough memory?)" : "");
        if (!writeOutput(options.output, picture)) {
            return exitNotCompared;
        }
    }
    if (options.json) {
        writeStdout(jsonText(tree));
    } else {
        print(compareText(tree, styleOfStdout()));
    }
    return !finishStdout() ? exitNotCompared : tree["equal"].get<bool>() ? exitOk : exitFailed;
}

}  // namespace

int runCompare(const CompareOptions& options, DrawDifferences draw) {
    // To whoever asks by the exit status, nothing that goes wrong may look like a difference.
    try {
        return compare(options, draw);
    } catch (const Refused& refused) {
        printError(refused.subject(), refused.what());
    } catch (const std::exception& error) {
        printError("", reasonOf(error));
    }
    return exitNotCompared;
}

}  // namespace calcut::tools
