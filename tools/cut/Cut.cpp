#include "tools/cut/Cut.h"

#include <algorithm>
#include <filesystem>

#include <fmt/format.h>

#include "tools/commands.h"
#include "tools/cut/Folder.h"
#include "tools/cut/Report.h"
#include "tools/cut/StackFiles.h"
#include "tools/terminal/Escape.h"
#include "tools/terminal/Interrupt.h"
#include "tools/terminal/OutputFile.h"
#include "tools/terminal/Terminal.h"

namespace calcut::tools {

namespace {

namespace fs = std::filesystem;

int statusOf(const CutResult& result, const CutOptions& options) {
    for (const Finding& warning : result.warnings) {
        printWarning(result.dump, describe(warning));
    }
    return options.strict && !result.warnings.empty() ? exitFailed : exitOk;
}

void printResult(const TakenDump& taken, const CutResult& result) {
    const std::vector<StackFile> files = filesOf(taken);
    std::string text =
        fmt::format("{}: {} dump\n", escapePath(result.dump), layoutName(result.layout));
    for (const StackFile& file : files) {
        // As wide as the longest of these names.
        text += fmt::format("wrote {}/{:<{}}  {:>7} bytes\n", escapePath(result.folder), file.name,
                            files.size() == 3 ? 13 : 12, file.bytes.size());
    }
    text += fmt::format("masked pixels: {}\nlens parameters:\n", result.maskedPixels);
    for (std::size_t i = 0; i < lensNames.size(); ++i) {
        text += fmt::format("  {}  {}\n", lensNames[i], result.lens[i]);
    }
    print(text);
}

int cutOne(const CutOptions& options) {
    const std::string& directory = options.paths[1];
    CutResult result;
    TakenDump taken;
    try {
        taken = takeDump(options.paths[0], options, result);
    } catch (const Refused& refused) {
        throw Refused(refused.subject(),
                      refused.what() + (holdsAnyCut(directory) ? earlierCutIn(directory) : ""));
    }
    const std::string signature = (fs::path(directory) / CALCUT_SIGNATURE_FILE).string();
    const bool leftover = identityOf(signature) && filesOf(taken).size() < stackFiles.size();
    const InterruptGuard guard;
    cutInto(taken, directory, options.force, result);
    if (leftover) {
        printWarning(signature,
                     "was left from an earlier cut and is removed: this dump has no "
                     "signature");
    }
    printResult(taken, result);
    return statusOf(result, options);
}

int verify(const CutOptions& options) {
    CutResult result;
    const TakenDump taken = takeDump(options.paths[0], options, result);
    const std::vector<StackFile> files = filesOf(taken);
    const std::vector<Difference> wrong = differences(files, options.verify);
    for (const Difference& difference : wrong) {
        printError(options.verify + "/" + difference.file, difference.what);
    }
    if (!wrong.empty()) {
        return exitFailed;
    }
    print(fmt::format("{}: the cut of {}, {} files equal\n", escapePath(options.verify),
                      escapePath(result.dump), files.size()));
    return statusOf(result, options);
}

}  // namespace

std::string usageFault(const CutOptions& options) {
    if (!options.verify.empty()) {
        return options.paths.size() == 1 ? "" : "--verify takes the directory and one DUMP";
    }
    if (options.out.empty()) {
        return options.paths.size() == 2 ? ""
                                         : "give one DUMP and its output directory, or DUMPs and "
                                           "--out DIR";
    }
    if (options.paths.empty() && options.filesFrom.empty()) {
        return "give a DUMP, a folder of them, or --files-from";
    }
    return options.report.empty() || Report::supports(options.report)
               ? ""
               : "the file of --report must end in .csv or .json";
}

int runCut(CutOptions options) {
    // So that a name behind them makes one slash.
    std::vector<std::string*> folders = {&options.out, &options.verify};
    if (options.paths.size() == 2) {
        folders.push_back(&options.paths[1]);
    }
    for (std::string* folder : folders) {
        while (folder->size() > 1 && folder->ends_with('/')) {
            folder->pop_back();
        }
    }
    if (!options.verify.empty()) {
        return verify(options);
    }
    return options.out.empty() ? cutOne(options) : cutMany(options);
}

}  // namespace calcut::tools
