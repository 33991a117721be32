#include "tools/compare/LoadedModule.h"

#include "tools/terminal/Terminal.h"

namespace calcut::tools {

std::unique_ptr<LoadedModule> loadModule(const std::string& path, std::optional<Layout> layout,
                                         std::uint64_t maxSize) {
    printNote(path, "reading");
    auto module = std::make_unique<LoadedModule>();
    module->dump = loadDump(path, maxSize);
    refuseFor(path, module->dump.error);
    const ByteView bytes = module->dump.bytes;
    Diagnosis& diagnosis = module->diagnosis;
    diagnosis = diagnose(bytes, layout.value_or(classify(bytes)), vantric::Wanted::everything);
    if (diagnosis.status != VANTRIC_OK || !diagnosis.record) {
        throw Refused(path, diagnosis.faults.empty() ? "holds no calibration"
                                                     : describe(diagnosis.faults.front()));
    }
    for (const Finding& fault : diagnosis.faults) {
        printWarning(path, describe(fault));
    }
    return module;
}

}  // namespace calcut::tools
