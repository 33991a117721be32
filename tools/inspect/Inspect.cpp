#include "tools/inspect/Inspect.h"

#include "tools/commands.h"
#include "tools/inspect/Text.h"
#include "tools/module/Module.h"
#include "tools/module/Tree.h"

namespace calcut::inspect {

int runInspect(const InspectOptions& options) {
    const bool several = options.paths.size() > 1;
    bool good = true;
    text::Json all = text::Json::array();
    for (const std::string& path : options.paths) {
        std::unique_ptr<module::Module> module;
        try {
            module = std::make_unique<module::Module>(files::loadDump(path, options.maxSize).bytes,
                                                      options.layout, vantric::Wanted::everything);
        } catch (const text::Refused& refused) {
            text::printError(path, refused.what());
            all.push_back(
                {{"schema", module::inspectSchema}, {"file", path}, {"error", refused.what()}});
            good = false;
            continue;
        }
        module->lookAtTables();
        const module::Diagnosis& diagnosis = module->diagnosis;
        good = good && diagnosis.intact() && !(options.strict && !diagnosis.warnings.empty());
        if (!options.json && text::terminal().verbosity == text::Verbosity::Quiet) {
            if (!diagnosis.intact()) {
                text::printError(path, module::describe(diagnosis.faults.front()));
            }
            continue;
        }
        text::Json tree = module::inspectTree(diagnosis, path);
        if (!options.json) {
            text::writeStdout(&path == options.paths.data() ? "" : "\n");
            text::writeStdout(textOf(tree, text::styleOfStdout()));
        } else if (several) {
            all.push_back(std::move(tree));
        } else {
            text::writeStdout(text::jsonText(tree, 2) + "\n");
        }
    }
    if (options.json && several) {
        text::writeStdout(text::jsonText(all, 2) + "\n");
    }
    return good ? exitOk : exitFailed;
}

}  // namespace calcut::inspect
