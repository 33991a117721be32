#include "tools/cut/Cut.h"

#ifdef __GLIBC__
#include <malloc.h>
#endif
#include <sys/stat.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <filesystem>
#include <iterator>
#include <mutex>
#include <system_error>
#include <thread>

#include <fmt/format.h>

#include "tools/commands.h"
#include "tools/cut/Folder.h"
#include "tools/cut/FolderNames.h"
#include "tools/cut/Report.h"
#include "tools/cut/StackFiles.h"
#include "tools/files/Inputs.h"
#include "tools/files/OutputFile.h"
#include "tools/module/Layout.h"
#include "tools/text/Escape.h"
#include "tools/text/Progress.h"
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

int verify(const CutOptions& options) {
    CutResult result;
    const TakenDump taken = takeDump(options.paths[0], options, result);
    const std::vector<text::Refused> wrong = differences(taken.files, options.verify);
    for (const text::Refused& difference : wrong) {
        text::printError(difference.subject(), difference.what());
    }
    if (!wrong.empty()) {
        return exitFailed;
    }
    text::print(fmt::format("{}: the cut of {}, {} files equal\n", text::escapePath(options.verify),
                            text::escapePath(result.dump), taken.files.size()));
    return statusOf(result, options);
}

// ----------------------------------------------------------------------------------- many cuts --

std::vector<CutResult> gather(const CutOptions& options) {
    std::vector<CutResult> results;
    for (const files::Input& input : files::gatherInputs(
             {options.paths, options.filesFrom, options.glob, {options.out, options.report}})) {
        CutResult& result = results.emplace_back();
        result.dump = input.path;
        result.source = input.source;
        if (input.path == "-") {
            throw text::Refused("standard input",
                                "is cut with calcut cut - OUTDIR, not with --out");
        }
        result.outcome = input.refusal ? Outcome::Failed : Outcome::NotReached;
        result.reason = input.refusal.value_or("interrupted");
    }
    nameFolders(results, options.out);
    return results;
}

class Batch {
  public:
    explicit Batch(const CutOptions& options)
        : options_(options), results_(gather(options)), progress_(results_.size()) {
        for (const CutResult& result : results_) {
            if (const auto identity = files::identityOf(result.dump)) {
                reads_.push_back(*identity);
            }
        }
    }

    /// Throws Refused where nothing can come of the whole.
    void prepare() {
        if (!options_.report.empty()) {
            std::vector<std::string> read = {options_.filesFrom};
            std::ranges::transform(results_, std::back_inserter(read), &CutResult::dump);
            files::checkWritable(options_.report, read);
        }
        // Only the last step of the path: a mistyped parent is still an error.
        constexpr mode_t everyone = 0777;
        text::refuseFor(options_.out, mkdir(options_.out.c_str(), everyone) != 0 && errno != EEXIST
                                          ? text::errnoText(errno)
                                          : whyNoOutput(options_.out));
        if (!options_.report.empty()) {
            report_.open(options_.report);
        }
    }

    void run() {
        const std::size_t processors = std::max(1U, std::thread::hardware_concurrency());
        const std::size_t wanted = options_.jobs != 0 ? options_.jobs : processors;
        std::vector<std::jthread> others;
        try {
            while (others.size() + 1 < std::min(wanted, results_.size())) {
                others.emplace_back([this] { work(); });
            }
        } catch (const std::system_error&) {
            // Fewer threads do the same work.
        }
        work();
    }

    /// Prints what came of it all. Returns the exit status.
    int finish() {
        // What an interrupt left over, which includes gaps behind slow dumps.
        progress_.clear();
        report(results_.size());
        text::print(summary(results_, progress_.seconds(), text::terminalWidth(stdout)));
        const bool written = report_.close();
        const auto failed = std::ranges::count(results_, false, &CutResult::good);
        const bool warned = std::ranges::any_of(
            results_, [](const CutResult& result) { return !result.warnings.empty(); });
        if (failed > 0) {
            (void)std::fflush(stdout);
            text::printError(
                "", fmt::format("{} of {} dumps {} not cut{}", failed, results_.size(),
                                failed == 1 ? "was" : "were",
                                text::InterruptGuard::interrupted() ? " (interrupted)" : ""));
        }
        const bool good = failed == 0 && written && !(warned && options_.strict);
        return good ? exitOk : exitFailed;
    }

  private:
    void work() {
        for (std::size_t i = next_++; i < results_.size() && !text::InterruptGuard::interrupted();
             i = next_++) {
            CutResult result = results_[i];
            try {
                cut(i, result);
            } catch (const std::exception& error) {
                result.outcome = Outcome::Failed;
                result.reason = text::reasonOf(error);
            }
            // An interrupted wait for a pipe's next bytes says nothing of the dump.
            if (result.loaded() || !text::InterruptGuard::interrupted()) {
                done(i, std::move(result));
            }
        }
    }

    void cut(std::size_t i, CutResult& result) {
        if (result.outcome == Outcome::Failed) {
            return;
        }
        result.reason.clear();
        try {
            cutToFolder(takeDump(result.dump, options_, result), reads_, i, options_, result);
        } catch (const text::Refused& refused) {
            result.earlierCut = noteIn(result.folder).value("source", "") == result.source;
            throw text::Refused(
                "", refused.what() + (result.earlierCut ? earlierCutIn(result.folder) : ""));
        }
    }

    void done(std::size_t i, CutResult result) {
        const std::lock_guard lock(mutex_);
        results_[i] = std::move(result);
        std::size_t end = reported_;
        while (end < results_.size() && results_[end].outcome != Outcome::NotReached) {
            ++end;
        }
        report(end);
        if (text::terminal().verbosity == text::Verbosity::Verbose) {
            progress_.clear();
            text::printNote(results_[i].dump,
                            results_[i].good()
                                ? fmt::format("{}, in {}", outcomeName(results_[i].outcome),
                                              text::escapePath(results_[i].folder))
                                : results_[i].reason);
        }
        progress_.step();
    }

    void report(std::size_t end) {
        if (end > reported_) {
            report_.add(std::span(results_).subspan(reported_, end - reported_));
            reported_ = end;
        }
    }

    const CutOptions& options_;
    std::vector<files::FileIdentity> reads_;
    std::vector<CutResult> results_;
    std::atomic<std::size_t> next_ = 0;

    std::mutex mutex_;          ///< of all below
    std::size_t reported_ = 0;  ///< rows before this one are in the report
    Report report_;
    text::Progress progress_;
};

void keepMemory() {
#ifdef __GLIBC__
    // Every dump takes and returns the same megabytes; giving them back to the system in between
    // would cost more than the work itself.
    constexpr int keptBytes = 32 << 20;
    mallopt(M_MMAP_THRESHOLD, keptBytes);
    mallopt(M_TRIM_THRESHOLD, keptBytes);
#endif
}

int cutMany(const CutOptions& options) {
    Batch batch(options);
    batch.prepare();
    keepMemory();
    const text::InterruptGuard guard;
    batch.run();
    return batch.finish();
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

int runCut(const CutOptions& given) {
    CutOptions options = given;
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

}  // namespace calcut::cut
