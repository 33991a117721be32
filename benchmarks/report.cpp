#include <algorithm>
#include <cstdio>
#include <map>

#include <benchmark/benchmark.h>

#include "work.h"

namespace calcut::bench {

namespace {

// Keeps the medians and prints nothing.
class Medians : public benchmark::ConsoleReporter {
  public:
    bool ReportContext(const Context& /*context*/) override { return true; }
    void ReportRuns(const std::vector<Run>& runs) override {
        for (const Run& run : runs) {
            if (run.aggregate_name == "median") {
                medians_[run.run_name.function_name] = run.GetAdjustedCPUTime();
            }
        }
    }
    void Finalize() override {}

    /// Microseconds of processor time, so that a busy machine distorts less; 0 when there is none.
    [[nodiscard]] double of(const Work& work, const char* way) const {
        const auto found = medians_.find(work.name + "/" + way);
        return found == medians_.end() ? 0.0 : found->second;
    }

  private:
    std::map<std::string, double> medians_;
};

std::string number(double value, const char* format) {
    if (value == 0.0) {
        return "-";
    }
    char text[32];
    static_cast<void>(std::snprintf(text, sizeof text, format, value));
    return text;
}

}  // namespace

bool measureAndReport(const std::vector<Work>& work, int repetitions, double secondsPerRun) {
    for (const Work& item : work) {
        const auto add = [&](const char* way, const bench::Run& run) {
            if (run) {
                benchmark::RegisterBenchmark((item.name + "/" + way).c_str(),
                                             [run](benchmark::State& state) {
                                                 for ([[maybe_unused]] auto _ : state) {
                                                     run();
                                                 }
                                             })
                    ->Unit(benchmark::kMicrosecond)
                    ->Repetitions(repetitions)
                    ->MinTime(secondsPerRun);
            }
        };
        add("plain", item.plain);
        add("fast", item.fast);
        add("peer", item.peer);
        add("bound", item.bound);
    }
    Medians medians;
    benchmark::RunSpecifiedBenchmarks(&medians);

    std::printf(
        "| work | plain us | fast us | ratio | target | memory us | peer | peer us | ratio "
        "| target |\n|---|---|---|---|---|---|---|---|---|---|\n");
    bool reached = true;
    for (const Work& item : work) {
        const double fast = medians.of(item, "fast");
        if (fast == 0.0) {
            continue;  // left out by a filter
        }
        const double ratio = medians.of(item, "plain") / fast;
        const double peerRatio = medians.of(item, "peer") / fast;
        reached =
            reached && ratio >= item.target && (peerRatio == 0.0 || peerRatio >= item.peerTarget);
        std::printf("| %s | %s | %s | %s | %s | %s | %s | %s | %s | %s |\n", item.name.c_str(),
                    number(medians.of(item, "plain"), "%.1f").c_str(), number(fast, "%.1f").c_str(),
                    number(ratio, "%.1f").c_str(), number(item.target, "%.0f").c_str(),
                    number(medians.of(item, "bound"), "%.1f").c_str(),
                    item.peer ? item.peerName.c_str() : "-",
                    number(medians.of(item, "peer"), "%.1f").c_str(),
                    number(peerRatio, "%.1f").c_str(), number(item.peerTarget, "%.0f").c_str());
    }
    for (const Work& item : work) {
        if (!item.peer && !item.peerName.empty()) {
            std::printf("Missing peer: %s\n", item.peerName.c_str());
        }
    }
    return reached;
}

}  // namespace calcut::bench
