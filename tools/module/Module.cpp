#include "tools/module/Module.h"

#include "tools/module/Layout.h"
#include "tools/text/Terminal.h"

namespace calcut::module {

std::unique_ptr<Module> loadModule(const std::string& path, std::optional<Layout> layout,
                                   std::uint64_t maxSize) {
    text::printNote(path, "reading");
    auto module = std::make_unique<Module>();
    module->dump = files::loadDump(path, maxSize);
    const files::ByteView bytes = module->dump.bytes;
    Diagnosis& diagnosis = module->diagnosis;
    diagnosis = diagnose(bytes, layout.value_or(classify(bytes)), vantric::Wanted::everything);
    if (diagnosis.status != VANTRIC_OK || !diagnosis.record) {
        throw text::Refused(path, diagnosis.faults.empty() ? "holds no calibration"
                                                           : describe(diagnosis.faults.front()));
    }
    for (const Finding& fault : diagnosis.faults) {
        text::printWarning(path, describe(fault));
    }
    return module;
}

}  // namespace calcut::module
