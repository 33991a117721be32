#include "tools/inspect/Inspect.h"

#include "tools/commands.h"
#include "tools/inspect/Text.h"

namespace calcut::tools {

int runInspect(const InspectOptions& options) {
    const bool several = options.paths.size() > 1;
    bool good = true;
    Json all = Json::array();
    for (const std::string& path : options.paths) {
        const Dump dump = loadDump(path, options.maxSize);
        if (!dump.error.empty()) {
            printError(path, dump.error);
            all.push_back({{"schema", inspectSchema}, {"file", path}, {"error", dump.error}});
            good = false;
            continue;
        }
        const Diagnosis diagnosis = diagnose(
            dump.bytes, options.layout.value_or(classify(dump.bytes)), vantric::Wanted::everything);
        good = good && diagnosis.intact() && !(options.strict && !diagnosis.warnings.empty());
        if (!options.json && terminal().verbosity == Verbosity::Quiet) {
            if (!diagnosis.intact()) {
                printError(path, describe(diagnosis.faults.front()));
            }
            continue;
        }
        Json tree = inspectTree(diagnosis, path);
        if (!options.json) {
            writeStdout(&path == options.paths.data() ? "" : "\n");
            writeStdout(textOf(tree, styleOfStdout()));
        } else if (several) {
            all.push_back(std::move(tree));
        } else {
            writeStdout(jsonText(tree, 2) + "\n");
        }
    }
    if (options.json && several) {
        writeStdout(jsonText(all, 2) + "\n");
    }
    return good ? exitOk : exitFailed;
}

}  // namespace calcut::tools
