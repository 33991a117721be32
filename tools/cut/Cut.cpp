#include "tools/cut/Cut.h"

#include <filesystem>
#include <system_error>
#include <utility>

#include <fmt/format.h>

#include "tools/cut/Folder.h"
#include "tools/cut/FolderNames.h"
#include "tools/cut/Report.h"
#include "tools/cut/StackFiles.h"
#include "tools/files/OutputFile.h"
#include "tools/text/Escape.h"
#include "tools/text/Terminal.h"

namespace calcut::cut {

namespace {

namespace fs = std::filesystem;

int statusOf(const CutResult& result, const CutOptions& options) {
    for (const module::Finding& warning : result.warnings) {
        text::printWarning(result.dump, module::describe(warning));
    }
    return options.strict && !result.warnings.empty() ? exitFailed : exitOk;
}

void printResult(const TakenDump& taken, const CutResult& result) {
    std::string text =
        fmt::format("{}: {} dump\n", text::escapePath(result.dump), result.layout.name);
    for (const StackFile& file : taken.files) {
        // As wide as the longest of these names.
        text += fmt::format("wrote {}/{:<{}}  {:>7} bytes\n", text::escapePath(result.folder),
                            file.name, taken.files.size() == 3 ? 13 : 12, file.bytes.size());
    }
    text += fmt::format("masked pixels: {}\nlens parameters:\n", result.maskedPixels);
    for (std::size_t i = 0; i < module::lensNames.size(); ++i) {
        text += fmt::format("  {}  {}\n", module::lensNames[i], result.lens[i]);
    }
    text::print(text);
}

int cutOne(const CutOptions& options) {
    const std::string& directory = options.paths[1];
    CutResult result;
    TakenDump taken;
    try {
        taken = takeDump(options.paths[0], options, result);
    } catch (const text::Refused& refused) {
        throw text::Refused(
            refused.subject(),
            refused.what() + (holdsAnyCut(directory) ? earlierCutIn(directory) : ""));
    }
    const std::string signature = (fs::path(directory) / CALCUT_SIGNATURE_FILE).string();
    const bool leftover = files::identityOf(signature) && taken.files.size() < stackFiles.size();
    const text::InterruptGuard guard;
    cutInto(taken, directory, options.force, result);
    if (leftover) {
        text::printWarning(signature,
                           "was left from an earlier cut and is removed: this dump has no "
                           "signature");
    }
    printResult(taken, result);
    return statusOf(result, options);
}

int verifyOne(const CutOptions& options) {
    // The directory comes first, but who gives it last is understood.
    std::string directory = options.paths[0];
    std::string dump = options.paths[1];
    std::error_code ignored;
    if (!fs::is_directory(directory, ignored) && fs::is_directory(dump, ignored)) {
        std::swap(directory, dump);
    }
    CutResult result;
    const TakenDump taken = takeDump(dump, options, result);
    const std::vector<Difference> wrong = differences(taken.files, directory);
    for (const auto& [name, what] : wrong) {
        text::printError(directory + "/" + name, what);
    }
    if (!wrong.empty()) {
        return exitFailed;
    }
    text::print(fmt::format("{}: the cut of {}, {} files equal\n", text::escapePath(directory),
                            text::escapePath(result.dump), taken.files.size()));
    return statusOf(result, options);
}

/// So that a name behind it makes one slash.
void trimSlashes(std::string& folder) {
    while (folder.size() > 1 && folder.ends_with('/')) {
        folder.pop_back();
    }
}

}  // namespace

std::optional<std::string> usageFault(const CutOptions& options) {
    if (options.out.empty()) {
        const char* forms =
            options.verify ? "--verify takes the directory and one DUMP, or --out DIR and DUMPs"
                           : "give one DUMP and its output directory, or DUMPs and --out DIR";
        return options.paths.size() == 2 ? std::nullopt : std::optional(forms);
    }
    if (options.paths.empty() && options.filesFrom.empty()) {
        return "give a DUMP, a folder of them, or --files-from";
    }
    if (!options.report.empty() && !Report::supports(options.report)) {
        return "the file of --report must end in .csv or .json";
    }
    return templateFault(options.name);
}

int runCut(const CutOptions& given) {
    CutOptions options = given;
    trimSlashes(options.out);
    if (!options.out.empty()) {
        return cutMany(options);
    }
    trimSlashes(options.paths[options.verify ? 0 : 1]);
    return options.verify ? verifyOne(options) : cutOne(options);
}

}  // namespace calcut::cut
