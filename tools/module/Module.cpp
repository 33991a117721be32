#include "tools/module/Module.h"

#include "tools/files/Dump.h"
#include "tools/text/Terminal.h"

namespace calcut::module {

std::unique_ptr<Module> loadModule(const std::string& path, const Reading& reading, Faults faults) {
    text::printNote(path, "reading");
    auto module = std::make_unique<Module>(files::loadDump(path, reading.intake).bytes,
                                           reading.layout, vantric::Wanted::everything);
    const Diagnosis& diagnosis = module->diagnosis;
    const bool letThrough = faults == Faults::tolerated ||
                            (faults == Faults::toleratedInImage && diagnosis.status == VANTRIC_OK);
    if (!diagnosis.intact() && !(letThrough && diagnosis.record)) {
        throw text::Refused(path, describe(diagnosis.faults.front()));
    }
    for (const Finding& fault : diagnosis.faults) {
        // A tolerated fault may spoil every number, and is told even when quiet.
        (faults == Faults::tolerated ? text::printError : text::printWarning)(path,
                                                                              describe(fault));
    }
    return module;
}

}  // namespace calcut::module
