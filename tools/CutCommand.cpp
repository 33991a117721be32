// calcut cut: one dump into a directory, or many dumps into a directory each.
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <system_error>
#include <thread>
#include <vector>

#include <fmt/format.h>

#include "commands.h"
#include "CutReport.h"
#include "DumpCutter.h"
#include "Output.h"
#include "WorkerPool.h"

namespace calcut::tools {

namespace {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

struct CutOptions {
    std::string layout = "auto";
    std::vector<std::string> paths;
    std::string out;
    unsigned jobs = 0;
    std::string report;
};

std::optional<Layout> forcedLayout(const CutOptions& options) {
    if (options.layout == "auto") {
        return std::nullopt;
    }
    return options.layout == "v7" ? Layout::V7 : Layout::Korveline;
}

// ----------------------------------------------------------------------------------- one dump --

constexpr std::array<const char*, CALCUT_LENS_PARAMETER_COUNT> lensNames = {
    "cx", "cy", "fx", "fy", "p1", "p2", "k1", "k2", "k3", "reserved"};

int cutOne(const CutOptions& options) {
    const std::string& dump = options.paths[0];
    const std::string& directory = options.paths[1];
    // Before anything is written, and also when both are wrong: the dump is what it is about.
    const std::string noOutput = whyNoOutput(directory);

    CutResult result;
    runInWorkers(
        1, 1,
        [&](std::size_t) {
            if (noOutput.empty()) {
                return serialise(cutDump(dump, forcedLayout(options), directory));
            }
            CutResult refused;
            refused.reason = loadFile(dump, Source::RegularFile).error;
            return serialise(refused);
        },
        [&](std::size_t, const std::string& bytes, const std::string& death) {
            if (death.empty()) {
                result = deserialise(bytes);
            } else {
                result.reason = "the library ended its process: " + death;
            }
        });
    if (!result.cut()) {
        printError(dump, result.reason);
        return exitFailed;
    }
    if (!noOutput.empty()) {
        printError(directory, noOutput);
        return exitFailed;
    }
    fmt::print("{}: {} dump\n", dump, layoutName(result.layout));
    std::size_t width = 0;
    for (const WrittenFile& file : result.files) {
        width = std::max(width, file.name.size());
    }
    for (const WrittenFile& file : result.files) {
        fmt::print("wrote {}/{:<{}}  {:>7} bytes\n", directory, file.name, width, file.size);
    }
    const std::string signature = directory + "/" + signatureFile;
    if (std::none_of(result.files.begin(), result.files.end(),
                     [](const WrittenFile& file) { return file.name == signatureFile; }) &&
        fs::exists(signature)) {
        printWarning(signature, "left from an earlier cut; this dump has no signature");
    }
    fmt::print("masked pixels: {}\nlens parameters:\n", result.maskedPixels);
    for (std::size_t i = 0; i < lensNames.size(); ++i) {
        fmt::print("  {:<8}  {}\n", lensNames[i], result.lens[i]);
    }
    return exitOk;
}

// ---------------------------------------------------------------------------------- many dumps --

// A folder name for each dump: its stem, with a number behind it from the second of a name on.
std::vector<std::string> folderNames(const std::vector<std::string>& dumps) {
    std::set<std::string> taken;
    std::vector<std::string> names;
    for (const std::string& dump : dumps) {
        std::string stem = fs::path(dump).stem().string();
        if (stem.empty() || stem == "." || stem == "..") {
            stem = "dump";
        }
        std::string name = stem;
        for (int number = 2; !taken.insert(name).second; ++number) {
            name = fmt::format("{}-{}", stem, number);
        }
        names.push_back(name);
    }
    return names;
}

// One line on a terminal, drawn over and over, and nothing anywhere else.
class Progress {
  public:
    explicit Progress(std::size_t total) : total_(total), shown_(isatty(STDERR_FILENO) != 0) {}
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;
    ~Progress() { clear(); }

    void step() {
        ++done_;
        const Clock::time_point now = Clock::now();
        if (!shown_ || now - drawn_ < std::chrono::milliseconds(100)) {
            return;
        }
        drawn_ = now;
        visible_ = true;
        const double seconds = std::chrono::duration<double>(now - start_).count();
        const double rate = seconds > 0 ? static_cast<double>(done_) / seconds : 0.0;
        const auto left =
            static_cast<std::uint64_t>(rate > 0 ? static_cast<double>(total_ - done_) / rate : 0.0);
        constexpr std::size_t barWidth = 30;
        const std::size_t filled = barWidth * done_ / total_;
        const std::string line =
            fmt::format("\r[{:#<{}}{:.<{}}] {}/{}  {:.1f} dumps/s  ETA {}:{:02}\x1b[K", "", filled,
                        "", barWidth - filled, done_, total_, rate, left / 60, left % 60);
        put(line);
    }

    void clear() const {
        if (visible_) {
            put("\r\x1b[K");
        }
    }

  private:
    static void put(const std::string& text) {
        (void)std::fwrite(text.data(), 1, text.size(), stderr);
        (void)std::fflush(stderr);
    }

    std::size_t total_;
    std::size_t done_ = 0;
    bool shown_;
    bool visible_ = false;
    Clock::time_point start_ = Clock::now();
    Clock::time_point drawn_ = start_;
};

std::optional<ReportFormat> reportFormat(const std::string& path) {
    const std::string extension = fs::path(path).extension().string();
    if (extension == ".csv") {
        return ReportFormat::Csv;
    }
    if (extension == ".json") {
        return ReportFormat::Json;
    }
    return std::nullopt;
}

bool writeReport(const std::string& path, const std::vector<CutRow>& rows) {
    const std::string text = renderReport(rows, *reportFormat(path));
    return writeOutput(path, {reinterpret_cast<const std::uint8_t*>(text.data()), text.size()});
}

int cutMany(const CutOptions& options) {
    // Only the last step of the path: a mistyped parent is still an error.
    std::error_code exists;
    std::filesystem::create_directory(options.out, exists);
    std::string reason = whyNoOutput(options.out);
    if (!reason.empty()) {
        printError(options.out, reason);
        return exitFailed;
    }
    if (!options.report.empty()) {
        reason = whyNotWritable(options.report);
        if (!reason.empty()) {
            printError(options.report, reason);
            return exitFailed;
        }
    }

    const std::vector<std::string> names = folderNames(options.paths);
    const auto directory = [&](std::size_t item) { return options.out + "/" + names[item]; };
    const pid_t run = getpid();
    const auto temporary = [&](std::size_t item) {
        return fmt::format("{}/.{}.partial-{}", options.out, names[item], run);
    };
    std::vector<CutRow> rows(options.paths.size());
    for (std::size_t i = 0; i < rows.size(); ++i) {
        rows[i].dump = options.paths[i];
        rows[i].result.reason = "interrupted";
    }
    const unsigned jobs =
        options.jobs != 0 ? options.jobs : std::max(1U, std::thread::hardware_concurrency());
    const Clock::time_point start = Clock::now();
    bool finished = false;
    {
        Progress progress(rows.size());
        finished = runInWorkers(
            rows.size(), jobs,
            [&](std::size_t item) {
                return serialise(cutDumpIntoNew(options.paths[item], forcedLayout(options),
                                                directory(item), temporary(item)));
            },
            [&](std::size_t item, const std::string& bytes, const std::string& death) {
                rows[item].reached = true;
                if (death.empty()) {
                    rows[item].result = deserialise(bytes);
                } else {
                    rows[item].result.reason = "the library ended its process: " + death;
                    std::error_code ignored;
                    fs::remove_all(temporary(item), ignored);
                }
                progress.step();
            });
    }
    const double seconds = std::chrono::duration<double>(Clock::now() - start).count();

    const std::string summary = renderSummary(rows, seconds);
    (void)std::fwrite(summary.data(), 1, summary.size(), stdout);
    bool good = options.report.empty() || writeReport(options.report, rows);
    const auto failed = std::count_if(rows.begin(), rows.end(),
                                      [](const CutRow& row) { return !row.result.cut(); });
    if (failed > 0) {
        (void)std::fflush(stdout);
        printError("", fmt::format("{} of {} dumps {} not cut{}", failed, rows.size(),
                                   failed == 1 ? "was" : "were", finished ? "" : " (interrupted)"));
        good = false;
    }
    return good ? exitOk : exitFailed;
}

}  // namespace

void addCutCommand(CLI::App& app, int& exitCode) {
    auto options = std::make_shared<CutOptions>();
    CLI::App* command = app.add_subcommand("cut", "Cut dumps into the files of the camera stack");
    command->footer(
        R"(calcut cut [OPTIONS] DUMP OUTDIR         one dump into an existing directory
calcut cut [OPTIONS] DUMP... --out DIR   a directory for each dump under DIR

Writes qov.spc (the packed calibration), lensdata.dat (the lens parameters) and, for a
Korveline dump with a signature area, signature.bin. In the second form a directory is
named after its dump without the extension and appears when it is complete; a bad dump
does not stop the others, and an earlier cut of the same name is replaced.

Examples:
  calcut cut module.bin out
  calcut cut line/*.bin --out cut --jobs 4 --report cut.csv)");
    command->add_option("DUMP", options->paths, "Dumps, or one dump and the output directory")
        ->required()
        ->type_name("");
    command
        ->add_option("--layout", options->layout,
                     "Layout of the dumps: v7, korveline, or auto to go by their magic")
        ->check(CLI::IsMember({"v7", "korveline", "auto"}))
        ->type_name("LAYOUT")
        ->capture_default_str();
    CLI::Option* out = command
                           ->add_option("--out", options->out,
                                        "Directory for many dumps, made when it is not there")
                           ->type_name("DIR");
    command->add_option("--jobs", options->jobs, "Dumps cut at once (one for each processor)")
        ->check(CLI::Range(1U, 1024U))
        ->type_name("N")
        ->needs(out);
    command
        ->add_option("--report", options->report,
                     "Write what came of each dump, by its extension as .csv or .json")
        ->type_name("FILE")
        ->needs(out);
    command->callback([options, out, &exitCode] {
        if (!options->report.empty() && !reportFormat(options->report)) {
            throw CLI::ValidationError("--report", "the file must end in .csv or .json");
        }
        if (out->count() > 0) {
            exitCode = cutMany(*options);
            return;
        }
        if (options->paths.size() != 2) {
            throw CLI::ValidationError(
                "cut", "give one dump and its output directory, or --out DIR for many dumps");
        }
        exitCode = cutOne(*options);
    });
}

}  // namespace calcut::tools
