// Does the work of the benchmarks a few times, with marks for the plugin that counts instructions;
// scripts/count runs it and makes the table.
#include <cstdio>
#include <cstring>
#include <exception>
#include <string>
#include <vector>

#include <unistd.h>

#include "countMark.h"
#include "work.h"

namespace calcut::bench {

namespace {

void mark(std::size_t row, long way, long repetitions) {
    static_cast<void>(syscall(markCall, static_cast<long>(row), way, repetitions));
}

// Between the marks of 0 and of n repetitions lies the work done n times and nothing else: what the
// first time alone needs was done before.
void countRuns(std::size_t row, long way, const Run& run, long repetitions) {
    if (run) {
        run();
        mark(row, way, 0);
        for (long i = 0; i < repetitions; ++i) {
            run();
        }
        mark(row, way, repetitions);
    }
}

void countWork(const std::vector<Work>& work, bool withPlain, std::size_t& row) {
    for (const Work& item : work) {
        if (item.repetitions == 0) {
            continue;
        }
        std::printf("%zu %s\n", row, item.name.c_str());
        if (withPlain) {
            countRuns(row, 0, item.plain, 1);
        }
        countRuns(row, 1, item.fast, item.repetitions);
        ++row;
    }
}

}  // namespace

}  // namespace calcut::bench

// Prints the number and the name of each row; with --plain the plain loops are counted as well,
// with
// --scaling whole reads and cuts of images from small to large.
int main(int argc, char** argv) {
    using namespace calcut::bench;
    const auto has = [&](const char* option) {
        for (int i = 1; i < argc; ++i) {
            if (std::strcmp(argv[i], option) == 0) {
                return true;
            }
        }
        return false;
    };
    try {
        std::size_t row = 0;
        countWork(kernelWork(), has("--plain"), row);
        countWork(readingWork(), has("--plain"), row);
        if (has("--scaling")) {
            countWork(scalingWork(), false, row);
        }
        return 0;
    } catch (const std::exception& failure) {
        static_cast<void>(std::fprintf(stderr, "%s\n", failure.what()));
        return 2;
    }
}
