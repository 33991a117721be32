// Many dumps at once.
#include <algorithm>
#include <atomic>
#include <cstdio>
#include <filesystem>
#include <iterator>
#include <map>
#include <mutex>
#include <optional>
#include <thread>

#ifdef __GLIBC__
#include <malloc.h>
#endif

#include <fmt/format.h>

#include "tools/cut/Cut.h"
#include "tools/cut/Folder.h"
#include "tools/cut/FolderNames.h"
#include "tools/cut/Note.h"
#include "tools/cut/Report.h"
#include "tools/cut/StackFiles.h"
#include "tools/files/Inputs.h"
#include "tools/files/OutputFile.h"
#include "tools/files/Temporary.h"
#include "tools/text/Escape.h"
#include "tools/text/Progress.h"
#include "tools/text/Terminal.h"

namespace calcut::cut {

namespace {

namespace fs = std::filesystem;

constexpr char noMemory[] = "not enough memory";

std::vector<CutResult> gather(const CutOptions& options, const std::string& reportOrNone) {
    std::vector<CutResult> results;
    for (const files::Input& input : files::gatherInputs(
             {options.paths, options.filesFrom, options.glob, {options.out, reportOrNone}})) {
        if (input.path == "-") {
            throw text::Refused("standard input",
                                "is cut with calcut cut - OUTDIR, not with --out");
        }
        CutResult& result = results.emplace_back();
        result.dump = input.path;
        result.source = input.source;
        result.outcome = input.refusal ? Outcome::Failed : Outcome::NotReached;
        // Room for the reason when there is no memory for it.
        result.reason.reserve(sizeof noMemory);
        result.reason = input.refusal.value_or("interrupted");
    }
    return results;
}

void refuseReportAmongModules(const CutOptions& options) {
    const fs::path folder = fs::weakly_canonical(fs::absolute(options.report).parent_path());
    const fs::path inside = folder.lexically_relative(fs::weakly_canonical(options.out));
    if (!inside.empty() && inside != "." && *inside.begin() != "..") {
        throw text::Refused(options.report, "is in the folder of a module; it is left alone");
    }
}

/// The inputs, and the report started: before them, so that no earlier one outlives a run that
/// could have written it, unless something else must be replaced that could be an input.
std::vector<CutResult> gatherAndReport(const CutOptions& options, Report& report) {
    const std::string& path = options.report;
    if (path == "-") {
        report.open(path);
    }
    if (path.empty() || path == "-") {
        return gather(options, "");
    }
    refuseReportAmongModules(options);
    std::vector<std::string> inputs = options.paths;
    inputs.push_back(options.filesFrom);
    if (Report::isFree(path)) {
        files::checkWritable(path, inputs, true);
        report.open(path);
        return gather(options, path);
    }
    std::vector<CutResult> results = gather(options, "");
    std::ranges::transform(results, std::back_inserter(inputs), &CutResult::dump);
    files::checkWritable(path, inputs, options.force);
    report.open(path);
    return results;
}

class Batch {
  public:
    Batch(const CutOptions& options, std::vector<CutResult> inputs, Report& report)
        : options_(options),
          results_(std::move(inputs)),
          report_(report),
          progress_(results_.size()) {
        for (const CutResult& result : results_) {
            if (const auto identity = files::identityOf(result.dump)) {
                reads_.push_back(*identity);
            }
        }
    }

    void run() {
        if (options_.name.empty()) {
            nameFolders(results_, options_.out);
        } else {
            onAll([this](CutResult& result) { nameByTemplate(result); });
            refuseEqualNames();
        }
        onAll([this](CutResult& result) { work(result); });
    }

    /// Prints what came of it all. Returns the exit status.
    int finish() {
        // What an interrupt left over, which includes gaps behind slow dumps.
        progress_.clear();
        report(results_.size());
        if (options_.report != "-") {
            text::print(summary(results_, progress_.seconds()));
        }
        const bool written = report_.close();
        const auto failed = std::ranges::count(results_, false, &CutResult::good);
        const bool warned = std::ranges::any_of(
            results_, [](const CutResult& result) { return !result.warnings.empty(); });
        if (failed > 0) {
            (void)std::fflush(stdout);
            text::printError(
                "", fmt::format("{} of {} dumps {} not {}{}", failed, results_.size(),
                                failed == 1 ? "was" : "were",
                                !options_.verify ? "cut"
                                : failed == 1    ? "equal to its cut"
                                                 : "equal to their cuts",
                                text::InterruptGuard::interrupted() ? " (interrupted)" : ""));
        }
        const bool good = failed == 0 && written && !(warned && options_.strict);
        return good ? exitOk : exitFailed;
    }

  private:
    template <class Step>
    void onAll(const Step& step) {
        std::atomic<std::size_t> next = 0;
        const auto work = [&] {
            for (std::size_t i = next++;
                 i < results_.size() && !text::InterruptGuard::interrupted(); i = next++) {
                step(results_[i]);
            }
        };
        const std::size_t processors = std::max(1U, std::thread::hardware_concurrency());
        const std::size_t wanted =
            std::min<std::size_t>(options_.jobs != 0 ? options_.jobs : processors, results_.size());
        std::vector<std::jthread> others;
        try {
            others.reserve(wanted);
            while (others.size() + 1 < wanted) {
                others.emplace_back(work);
            }
        } catch (const std::exception&) {
            // Fewer threads do the same work.
        }
        work();
    }

    /// Runs a step; whatever it throws is the reason why the dump failed.
    template <class Step>
    void attempt(CutResult& result, const Step& step) const try {
        step();
    } catch (const std::exception& error) {
        result.outcome = Outcome::Failed;
        // What is longer than the room that was reserved may find no memory, either.
        try {
            result.reason = text::reasonOf(error);
            requireRoom();
            result.earlierCut =
                !options_.verify && !result.folder.empty() && isCutOf(result.folder, result.source);
            result.reason += result.earlierCut ? earlierCutIn(result.folder) : "";
        } catch (const std::exception&) {
            result.reason = noMemory;
        }
        // An interrupted wait for a pipe's next bytes says nothing of the dump.
        if (!result.crc && text::InterruptGuard::interrupted()) {
            result.outcome = Outcome::NotReached;
            result.reason = "interrupted";
        }
    }

    void nameByTemplate(CutResult& result) const {
        if (result.outcome == Outcome::Failed) {
            return;
        }
        attempt(result, [&] {
            if (needsDump(options_.name)) {
                (void)takeDump(result.dump, options_, result);
            }
            result.folder = options_.out + "/" + nameFrom(options_.name, result);
        });
    }

    void refuseEqualNames() {
        std::map<std::string, std::vector<CutResult*>> byFolder;
        for (CutResult& result : results_) {
            byFolder[result.folder].push_back(&result);
        }
        byFolder.erase("");
        for (const auto& [folder, dumps] : byFolder) {
            for (std::size_t i = 0; dumps.size() > 1 && i < dumps.size(); ++i) {
                dumps[i]->outcome = Outcome::Failed;
                dumps[i]->reason =
                    fmt::format("{} would be the folder of {}, too", text::escapePath(folder),
                                text::escapePath(dumps[i == 0 ? 1 : 0]->dump));
            }
        }
    }

    void work(CutResult& result) {
        if (result.outcome == Outcome::NotReached) {
            attempt(result, [&] { cutOrVerify(result); });
        }
        if (result.outcome != Outcome::NotReached) {
            done(result);
        }
    }

    void cutOrVerify(CutResult& result) const {
        const TakenDump taken = takeDump(result.dump, options_, result);
        if (!options_.verify) {
            cutToFolder(taken, reads_, options_, result);
            return;
        }
        std::string all;
        for (const auto& [name, what] : differences(taken.files, result.folder)) {
            all += fmt::format("{}{}/{} {}", all.empty() ? "" : "; ",
                               text::escapePath(result.folder), name, what);
        }
        if (!all.empty()) {
            throw text::Refused(result.dump, all);
        }
        result.outcome = Outcome::Equal;
    }

    void done(const CutResult& result) {
        const std::lock_guard lock(mutex_);
        finished_[static_cast<std::size_t>(&result - results_.data())] = true;
        try {
            std::size_t end = reported_;
            while (end < results_.size() && finished_[end]) {
                ++end;
            }
            requireRoom();
            report(end);
            if (text::terminal().verbosity == text::Verbosity::Verbose) {
                progress_.clear();
                text::printNote(result.dump,
                                result.good()
                                    ? fmt::format("{}, in {}", outcomeName(result.outcome),
                                                  text::escapePath(result.folder))
                                    : result.reason);
            }
            progress_.step();
        } catch (const std::bad_alloc&) {
            // A later row, or the end, writes this one, too.
        }
    }

    void report(std::size_t end) {
        if (end > reported_) {
            report_.add(std::span(results_).subspan(reported_, end - reported_));
            reported_ = end;
        }
    }

    const CutOptions& options_;
    std::vector<files::FileIdentity> reads_;
    std::vector<CutResult> results_;  ///< each belongs to one thread until it is finished

    std::mutex mutex_;  ///< of all below
    std::vector<bool> finished_ = std::vector<bool>(results_.size());
    std::size_t reported_ = 0;  ///< rows before this one are in the report
    Report& report_;
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

}  // namespace

int cutMany(const CutOptions& options) {
    if (!options.verify) {
        // What keeps it from being made is told once the report has begun.
        (void)files::makeDirectory(options.out);
    }
    Report report;
    std::vector<CutResult> inputs = gatherAndReport(options, report);
    std::optional<files::FolderLock> lock;
    if (!options.verify) {
        checkDirectory(options.out);
        lock.emplace(options.out);
        removeLeftovers(options.out, false);
    }
    keepMemory();
    const text::InterruptGuard guard;
    Batch batch(options, std::move(inputs), report);
    batch.run();
    return batch.finish();
}

}  // namespace calcut::cut
