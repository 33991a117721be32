#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "calcut/cutter.h"
#include "cutDirectory.h"
#include "plain/plain.h"
#include "work.h"

namespace calcut::bench {

namespace {

using Clock = std::chrono::steady_clock;

constexpr int processes = 101;
constexpr int dumps = 64;
constexpr int rounds = 9;

struct Cold {
    double microseconds = 0.0;
    long pages = 0;
};

double microsecondsSince(Clock::time_point start) {
    return std::chrono::duration<double, std::micro>(Clock::now() - start).count();
}

Cold coldCut(const char* way, const CutDirectory& files) {
    const std::string command = std::string("exec " CALCUT_COLD_CUT " ") + way + ' ' +
                                files.dumpFile() + ' ' + files.directory();
    const Clock::time_point start = Clock::now();
    FILE* output = popen(command.c_str(), "re");
    Cold cold;
    char line[32] = {};
    const bool printed = output != nullptr && std::fgets(line, sizeof line, output) != nullptr;
    cold.pages = std::strtol(line, nullptr, 10);
    if (output == nullptr || pclose(output) != 0 || !printed) {
        throw std::runtime_error("the cold cut failed");
    }
    cold.microseconds = microsecondsSince(start);
    return cold;
}

Cold medianOf(std::vector<Cold>& runs) {
    const auto middle = runs.begin() + static_cast<std::ptrdiff_t>(runs.size() / 2);
    std::nth_element(runs.begin(), middle, runs.end(),
                     [](const Cold& a, const Cold& b) { return a.microseconds < b.microseconds; });
    return *middle;
}

void reportColdProcesses() {
    const CutDirectory files(makeStandardDump(1));
    std::vector<Cold> plain;
    std::vector<Cold> fast;
    for (int i = 0; i < processes; ++i) {
        plain.push_back(coldCut("plain", files));
        fast.push_back(coldCut("fast", files));
    }
    const Cold one = medianOf(plain);
    const Cold other = medianOf(fast);
    std::printf(
        "\nA cold process (start, one cut, exit; medians of %d by turns, wall clock): plain %.0f "
        "us, "
        "calcut %.0f us, ratio %.1f\nPages that the cut touches first there: plain %ld, calcut "
        "%ld\n",
        processes, one.microseconds, other.microseconds, one.microseconds / other.microseconds,
        one.pages, other.pages);
}

// The best of some rounds by turns, so that a busy machine distorts less.
void reportManyDumps() {
    std::vector<std::unique_ptr<CutDirectory>> files;
    files.reserve(dumps);
    for (int i = 0; i < dumps; ++i) {
        files.push_back(
            std::make_unique<CutDirectory>(makeStandardDump(static_cast<std::uint64_t>(i) + 1)));
    }
    double best[2] = {0.0, 0.0};
    for (int round = 0; round < rounds; ++round) {
        for (int way = 0; way < 2; ++way) {
            const Clock::time_point start = Clock::now();
            for (const auto& file : files) {
                EEPROMMetaInformation meta;
                const std::string dump = file->dumpFile();
                const std::string directory = file->directory();
                const bool done = way == 0 ? plain::cutV7(dump, directory, meta)
                                           : cutEEPROMContent(CALCUT_LAYOUT_V7, dump.c_str(),
                                                              directory.c_str(), &meta) == 0;
                if (!done) {
                    throw std::runtime_error("a cut failed");
                }
            }
            best[way] = std::max(best[way], dumps * 1e6 / microsecondsSince(start));
        }
    }
    std::printf("Different dumps a second on one core: plain %.0f, calcut %.0f, ratio %.1f\n",
                best[0], best[1], best[1] / best[0]);
}

}  // namespace

void reportProcesses() {
    reportColdProcesses();
    reportManyDumps();
}

}  // namespace calcut::bench
