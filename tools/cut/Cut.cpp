#include "tools/cut/Cut.h"

#include <algorithm>
#include <cstdio>

#include <fmt/format.h>

#include "tools/commands.h"
#include "tools/cut/Batch.h"
#include "tools/cut/Folder.h"
#include "tools/cut/Report.h"
#include "tools/cut/StackFiles.h"
#include "tools/terminal/Escape.h"
#include "tools/terminal/Interrupt.h"
#include "tools/terminal/OutputFile.h"
#include "tools/terminal/Terminal.h"

namespace calcut::tools {

namespace {

int statusOf(const CutResult& result, const CutOptions& options) {
    for (const Finding& warning : result.warnings) {
        printWarning(result.dump, describe(warning));
    }
    return options.strict && !result.warnings.empty() ? exitFailed : exitOk;
}

void printResult(const TakenDump& taken, const CutResult& result) {
    const std::vector<StackFile> files = filesOf(taken);
    std::size_t width = 0;
    for (const StackFile& file : files) {
        width = std::max(width, std::string_view(file.name).size());
    }
    std::string text =
        fmt::format("{}: {} dump\n", escapePath(result.dump), layoutName(result.layout));
    for (const StackFile& file : files) {
        text += fmt::format("wrote {}/{:<{}}  {:>7} bytes\n", escapePath(result.folder), file.name,
                            width, file.bytes.size());
    }
    text += fmt::format("masked pixels: {}\nlens parameters:\n", result.maskedPixels);
    for (std::size_t i = 0; i < lensNames.size(); ++i) {
        text += fmt::format("  {}  {}\n", lensNames[i], result.lens[i]);
    }
    print(text);
}

// Writes the files aside and moves them into the result's folder, or fails.
void placeFiles(const TakenDump& taken, CutResult& result) {
    TemporaryFolder temporary(result.folder, 0);
    if (!temporary.error().empty()) {
        result.fail(temporary.error());
        return;
    }
    writeStackFiles(taken, temporary.path(), result);
    if (InterruptGuard::interrupted()) {
        result.fail("interrupted");
    }
    if (result.outcome != Outcome::Failed) {
        const std::string reason = moveFiles(temporary, result.folder);
        if (!reason.empty()) {
            result.fail(reason);
        }
    }
}

int cutOne(const CutOptions& options) {
    const std::string& dump = options.paths[0];
    const std::string& directory = options.paths[1];
    CutResult result;
    result.folder = directory;
    const std::optional<TakenDump> taken = takeDump(dump, options, result);
    if (!taken) {
        printError(dump, result.reason + (holdsAnyCut(directory) ? "; an earlier cut is still in " +
                                                                       escapePath(directory)
                                                                 : std::string()));
        return exitFailed;
    }
    std::vector<FileIdentity> inputs;
    if (const auto identity = identityOf(dump)) {
        inputs.push_back(*identity);
    }
    std::string reason = whyNoOutput(directory);
    if (reason.empty()) {
        reason = whyNotInto(directory, inputs, options.force);
    }
    if (!reason.empty()) {
        printError(directory, reason);
        return exitFailed;
    }
    const InterruptGuard guard;
    const std::string signature = directory + "/" + signatureFile;
    const bool leftover = identityOf(signature) && filesOf(*taken).size() < stackFiles.size();
    placeFiles(*taken, result);
    if (result.outcome == Outcome::Failed) {
        printError(dump, result.reason);
        return exitFailed;
    }
    if (leftover) {
        printWarning(signature,
                     "was left from an earlier cut and is removed: this dump has no "
                     "signature");
    }
    printResult(*taken, result);
    return statusOf(result, options);
}

int verify(const CutOptions& options) {
    const std::string& dump = options.paths[0];
    CutResult result;
    const std::optional<TakenDump> taken = takeDump(dump, options, result);
    if (!taken) {
        printError(dump, result.reason);
        return exitFailed;
    }
    const std::vector<StackFile> files = filesOf(*taken);
    const std::vector<Difference> wrong = differences(files, options.verify);
    for (const Difference& difference : wrong) {
        printError(options.verify + "/" + difference.file, difference.what);
    }
    if (!wrong.empty()) {
        return exitFailed;
    }
    print(fmt::format("{}: the cut of {}, {} files equal\n", escapePath(options.verify),
                      escapePath(dump), files.size()));
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

int runCut(const CutOptions& options) {
    if (!options.verify.empty()) {
        return verify(options);
    }
    return options.out.empty() ? cutOne(options) : cutMany(options);
}

}  // namespace calcut::tools
