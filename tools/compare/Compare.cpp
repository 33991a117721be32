#include "tools/compare/Compare.h"

#include <algorithm>

#include "tools/commands.h"
#include "tools/compare/Rendering.h"
#include "tools/files/OutputFile.h"
#include "tools/module/Module.h"
#include "tools/text/Terminal.h"

namespace calcut::compare {

namespace {

std::unique_ptr<module::Module> load(const std::string& path, const CompareOptions& options) {
    std::unique_ptr<module::Module> module;
    const auto work = [&] {
        module = module::loadModule(path, options.reading, module::Faults::toleratedInImage);
        return exitOk;
    };
    (void)text::guarded(work, exitNotCompared);
    return module;
}

int compareTwo(const CompareOptions& options, DrawDifferences draw) {
    const bool drawn = !options.output.empty();
    if (drawn) {
        files::checkWritable(options.output, options.paths, options.force);
    }
    // Both are tried, so that one run tells about both.
    const auto a = load(options.paths[0], options);
    const auto b = load(options.paths[1], options);
    if (!a || !b) {
        return exitNotCompared;
    }
    const Comparison comparison(a->diagnosis, b->diagnosis, options.tolerances);
    const Compared what = {{options.paths[0], options.paths[1]}, options.tolerances};
    if (drawn) {
        files::writeOutput(options.output, draw(a->diagnosis, b->diagnosis, options));
    }
    if (options.json) {
        text::writeStdout(text::jsonText(treeOf(comparison, what), 2) + "\n");
    } else {
        text::print(textOf(comparison, what, text::styleOfStdout()));
    }
    text::finishStdout();
    return comparison.equal ? exitOk : exitFailed;
}

}  // namespace

std::optional<std::string> usageFault(const CompareOptions& options) {
    const auto& [absolute, relative] = options.tolerances;
    const bool perTable = !relative.empty() || absolute.size() != absolute.count("");
    return options.to.empty() && options.paths.size() != 2 ? "give two files, or many with --to"
           : std::ranges::count(options.paths, "-") + (options.to == "-" ? 1 : 0) > 1
               ? "only one file can be standard input"
           : !options.to.empty() && options.json            ? "--to takes no --json, but a --report"
           : !options.to.empty() && !options.output.empty() ? "--to draws nothing"
           : !options.output.empty() && perTable
               ? "a picture takes one --tolerance for everything, and no --rtol"
               : std::optional<std::string>();
}

int runCompare(const CompareOptions& options, DrawDifferences draw) {
    // To whoever asks by the exit status, nothing that goes wrong may look like a difference.
    return text::guarded(
        [&] { return options.to.empty() ? compareTwo(options, draw) : compareMany(options); },
        exitNotCompared);
}

}  // namespace calcut::compare
