#include "tools/cut/Batch.h"

#ifdef __GLIBC__
#include <malloc.h>
#endif
#include <sys/stat.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <mutex>
#include <new>
#include <system_error>
#include <thread>

#include <fmt/format.h>

#include "tools/commands.h"
#include "tools/cut/Folder.h"
#include "tools/cut/Inputs.h"
#include "tools/cut/Progress.h"
#include "tools/cut/Report.h"
#include "tools/cut/StackFiles.h"
#include "tools/terminal/Escape.h"
#include "tools/terminal/Interrupt.h"
#include "tools/terminal/OutputFile.h"
#include "tools/terminal/Terminal.h"

namespace calcut::tools {

namespace {

Owner ownerOf(const std::string& source, const TakenDump& taken, const CutResult& result) {
    Owner owner{source, result.size, result.crc, layoutName(result.layout), result.maskedPixels,
                {}};
    for (const StackFile& file : filesOf(taken)) {
        owner.files.push_back({file.name, file.bytes.size()});
    }
    return owner;
}

class Batch {
  public:
    Batch(const CutOptions& options, const Inputs& inputs)
        : options_(options),
          inputs_(inputs),
          results_(inputs.dumps.size()),
          finished_(results_.size(), 0),
          progress_(results_.size()) {
        for (std::size_t i = 0; i < results_.size(); ++i) {
            results_[i].dump = inputs.dumps[i];
            results_[i].folder = options.out + "/" + inputs.folders[i];
            results_[i].reason = "interrupted";
            if (const auto identity = identityOf(inputs.dumps[i])) {
                identities_.push_back(*identity);
            }
        }
    }

    bool openReport() { return options_.report.empty() || report_.open(options_.report); }

    void run() {
        const std::size_t processors = std::max(1U, std::thread::hardware_concurrency());
        const std::size_t wanted = options_.jobs != 0 ? options_.jobs : processors;
        std::vector<std::thread> others;
        try {
            while (others.size() + 1 < std::min(wanted, results_.size())) {
                others.emplace_back([this] { work(); });
            }
        } catch (const std::system_error&) {
            // Fewer threads do the same work.
        }
        work();
        for (std::thread& other : others) {
            other.join();
        }
        progress_.clear();
    }

    /// Prints what came of it all. Returns the exit status.
    int finish(double seconds) {
        // What an interrupt left over, which includes gaps behind slow dumps.
        report_.add(results_.data() + reported_, results_.size() - reported_);
        print(summary(results_, seconds, terminalWidth(stdout)));
        const bool written = report_.close();
        std::size_t warned = 0, failed = 0;
        for (const CutResult& result : results_) {
            failed += result.good() ? 0 : 1;
            warned += result.warnings.empty() ? 0 : 1;
        }
        if (failed > 0) {
            (void)std::fflush(stdout);
            printError("", fmt::format("{} of {} dumps {} not cut{}", failed, results_.size(),
                                       failed == 1 ? "was" : "were",
                                       InterruptGuard::interrupted() ? " (interrupted)" : ""));
        }
        const bool good = failed == 0 && written && (warned == 0 || !options_.strict);
        return good ? exitOk : exitFailed;
    }

  private:
    void work() {
        for (std::size_t i = next_++; i < results_.size() && !InterruptGuard::interrupted();
             i = next_++) {
            CutResult result = results_[i];
            result.reason.clear();
            try {
                cut(i, result);
            } catch (const std::bad_alloc&) {
                result.fail("not enough memory");
            } catch (const std::exception& error) {
                result.fail(error.what());
            }
            // An interrupted wait for a pipe's next bytes says nothing of the dump.
            if (result.loaded || !InterruptGuard::interrupted()) {
                done(i, std::move(result));
            }
        }
    }

    void cut(std::size_t i, CutResult& result) {
        const std::optional<TakenDump> taken = takeDump(inputs_.dumps[i], options_, result);
        if (taken) {
            place(i, *taken, result);
        }
        if (!result.good()) {
            const auto owner = readOwner(result.folder);
            result.earlierCut = owner && owner->source == inputs_.sources[i];
            if (result.earlierCut) {
                result.reason += "; an earlier cut is still in " + escapePath(result.folder);
            }
        }
    }

    void place(std::size_t i, const TakenDump& taken, CutResult& result) {
        Owner owner = ownerOf(inputs_.sources[i], taken, result);
        const std::string& folder = result.folder;
        if (options_.resume) {
            const auto earlier = readOwner(folder);
            if (earlier && holdsWholeCut(folder, *earlier, owner)) {
                result.outcome = Outcome::Kept;
                result.maskedPixels = earlier->maskedPixels;
                return;
            }
        }
        std::string reason = whyNotFolder(folder, owner, identities_, options_.force);
        if (reason.empty()) {
            TemporaryFolder temporary(options_.out, i);
            reason = temporary.error();
            if (reason.empty()) {
                writeStackFiles(taken, temporary.path(), result);
                owner.maskedPixels = result.maskedPixels;
                reason = writeOwner(temporary.path(), owner);
            }
            if (reason.empty() && result.outcome != Outcome::Failed) {
                reason = moveFolder(temporary, folder);
            }
        }
        if (!reason.empty()) {
            result.fail(reason);
        } else if (result.outcome != Outcome::Failed) {
            result.outcome = Outcome::Cut;
        }
    }

    void done(std::size_t i, CutResult result) {
        const std::lock_guard lock(mutex_);
        results_[i] = std::move(result);
        finished_[i] = 1;
        std::size_t end = reported_;
        while (end < finished_.size() && finished_[end] != 0) {
            ++end;
        }
        if (end > reported_) {
            report_.add(results_.data() + reported_, end - reported_);
            reported_ = end;
        }
        if (terminal().verbosity == Verbosity::Verbose) {
            progress_.clear();
            printNote(results_[i].dump,
                      results_[i].good()
                          ? fmt::format("{}, in {}", outcomeName(results_[i].outcome),
                                        escapePath(results_[i].folder))
                          : results_[i].reason);
        }
        progress_.step();
    }

    const CutOptions& options_;
    const Inputs& inputs_;
    std::vector<FileIdentity> identities_;
    std::vector<CutResult> results_;
    std::atomic<std::size_t> next_ = 0;

    std::mutex mutex_;  ///< of all below
    std::vector<char> finished_;
    std::size_t reported_ = 0;  ///< rows before this one are in the report
    Report report_;
    Progress progress_;
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
    const Inputs inputs = gatherInputs(options);
    if (!inputs.error.empty()) {
        printError(inputs.subject, inputs.error);
        return exitFailed;
    }
    if (!options.report.empty()) {
        std::vector<std::string> read = inputs.dumps;
        read.push_back(options.filesFrom);
        const std::string reason = whyNotWritable(options.report, read);
        if (!reason.empty()) {
            printError(options.report, reason);
            return exitFailed;
        }
    }
    // Only the last step of the path: a mistyped parent is still an error.
    constexpr mode_t everyone = 0777;
    const std::string reason = mkdir(options.out.c_str(), everyone) != 0 && errno != EEXIST
                                   ? std::generic_category().message(errno)
                                   : whyNoOutput(options.out);
    if (!reason.empty()) {
        printError(options.out, reason);
        return exitFailed;
    }
    keepMemory();
    const InterruptGuard guard;
    Batch batch(options, inputs);
    if (!batch.openReport()) {
        return exitFailed;
    }
    const Clock::time_point start = Clock::now();
    batch.run();
    return batch.finish(secondsSince(start));
}

}  // namespace calcut::tools
