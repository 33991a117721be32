#include "tools/cut/CutInto.h"

#include "tools/cut/Folder.h"
#include "tools/terminal/Interrupt.h"
#include "tools/terminal/OutputFile.h"

namespace calcut::tools {

std::string cutInto(const TakenDump& taken, const std::string& directory, bool force,
                    CutResult& result) {
    result.folder = directory;
    std::vector<FileIdentity> inputs;
    if (const auto identity = identityOf(result.dump)) {
        inputs.push_back(*identity);
    }
    std::string reason = whyNoOutput(directory);
    if (reason.empty()) {
        reason = whyNotInto(directory, inputs, force);
    }
    if (!reason.empty()) {
        result.fail(reason);
        return directory;
    }
    TemporaryFolder temporary(directory, 0);
    if (!temporary.error().empty()) {
        result.fail(temporary.error());
        return result.dump;
    }
    writeStackFiles(taken, temporary.path(), result);
    if (InterruptGuard::interrupted()) {
        result.fail("interrupted");
    }
    if (result.outcome != Outcome::Failed) {
        reason = moveFiles(temporary, directory);
        if (!reason.empty()) {
            result.fail(reason);
        } else {
            result.outcome = Outcome::Cut;
        }
    }
    return result.dump;
}

}  // namespace calcut::tools
