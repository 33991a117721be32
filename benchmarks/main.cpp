#include <cstdio>
#include <exception>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>
#include <unistd.h>

#include "work.h"

namespace {

constexpr int repetitions = 15;
constexpr double secondsPerRun = 0.04;

}  // namespace

// Takes the options of Google Benchmark, of which --benchmark_filter is the useful one. Ends with 1
// when a target was missed.
int main(int argc, char** argv) {
    char interleave[] = "--benchmark_enable_random_interleaving=true";
    std::vector<char*> arguments(argv, argv + argc);
    arguments.push_back(interleave);
    int count = static_cast<int>(arguments.size());
    benchmark::Initialize(&count, arguments.data());
    try {
        std::printf("Kernels: %s\n\n", calcut::bench::chosenKernels().c_str());
        std::vector<calcut::bench::Work> work = calcut::bench::kernelWork();
        for (calcut::bench::Work& item : calcut::bench::readingWork()) {
            work.push_back(std::move(item));
        }
        const bool reached = calcut::bench::measureAndReport(work, repetitions, secondsPerRun);
        const std::string filter = benchmark::GetBenchmarkFilter();
        if (filter.empty() || filter == ".") {
            calcut::bench::reportProcesses();
        }
        return reached ? 0 : 1;
    } catch (const std::exception& failure) {
        static_cast<void>(std::fprintf(stderr, "%s\n", failure.what()));
        return 2;
    }
}
