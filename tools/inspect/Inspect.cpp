#include "tools/inspect/Inspect.h"

#include <memory>

#include "tools/commands.h"
#include "tools/files/Inputs.h"
#include "tools/inspect/Text.h"
#include "tools/module/Module.h"
#include "tools/module/Tree.h"

namespace calcut::inspect {

namespace {

std::unique_ptr<module::Module> look(const files::Input& input, const InspectOptions& options) {
    if (input.refusal) {
        throw text::Refused(input.path, *input.refusal);
    }
    auto module =
        std::make_unique<module::Module>(files::loadDump(input.path, options.reading.intake).bytes,
                                         options.reading.layout, vantric::Wanted::everything);
    module->lookAtTables();
    return module;
}

}  // namespace

int runInspect(const InspectOptions& options) {
    const std::vector<files::Input> inputs = files::gatherInputs({.paths = options.paths});
    // A folder gives a list, however many dumps it holds.
    const bool single = options.paths.size() == 1 && inputs[0].path == options.paths[0];
    const bool quiet = text::terminal().verbosity == text::Verbosity::Quiet;
    bool good = true;
    text::Json all = text::Json::array();
    const auto tell = [&](text::Json tree) {
        if (options.jsonl) {
            text::writeStdout(text::jsonText(tree) + "\n");
        } else if (options.json) {
            all.push_back(std::move(tree));
        }
    };
    for (const files::Input& input : inputs) {
        std::unique_ptr<module::Module> file;
        try {
            file = look(input, options);
        } catch (const text::Refused& refused) {
            text::printError(input.path, refused.what());
            tell({{"schema", module::inspectSchema},
                  {"file", input.path},
                  {"error", refused.what()}});
            good = false;
            continue;
        }
        const module::Diagnosis& about = file->diagnosis;
        good = good && about.intact() && !(options.strict && !about.warnings.empty());
        if (options.json || options.jsonl) {
            tell(module::inspectTree(about, input.path));
        } else if (!quiet) {
            text::writeStdout(&input == inputs.data() ? "" : "\n");
            text::writeStdout(textOf(about, input.path, text::styleOfStdout()));
        } else if (!about.intact()) {
            text::printError(input.path, module::describe(about.faults.front()));
        }
    }
    // A single file that could not be loaded is no object.
    if (options.json && !(single && all[0].contains("error"))) {
        text::writeStdout(text::jsonText(single ? all[0] : all, 2) + "\n");
    }
    return good ? exitOk : exitFailed;
}

}  // namespace calcut::inspect
