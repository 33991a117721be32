// Runs fuzz targets without a fuzzer.
//
//   fuzz_replay                    every target over its seeds and inputs of a random generator
//   fuzz_replay --exhaustive [TARGET]
//                                  every target, or one, over every truncation and every flipped
//                                  bit of its smaller seeds
//   fuzz_replay --write DIRECTORY  writes the seeds to DIRECTORY/<target>/<number>
//   fuzz_replay TARGET FILE...     one target over given inputs, to look into a finding
#include <algorithm>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <stdexcept>
#include <string>

#include "targets.h"

namespace {

// Every target has seeds below this size.
constexpr std::size_t largestExhausted = 1000;

// The same inputs on every machine.
fuzz::Bytes randomInput(std::mt19937& generator) {
    fuzz::Bytes input(64 + generator() % 2048);
    std::generate(input.begin(), input.end(),
                  [&] { return static_cast<std::uint8_t>(generator() & 0xFFU); });
    return input;
}

void replay() {
    constexpr int randomInputs = 1000;
    std::mt19937 generator(20240229);  // NOLINT(cert-msc32-c,cert-msc51-cpp): repeatable
    for (const fuzz::Target& target : fuzz::targets) {
        const std::vector<fuzz::Bytes> seeds = fuzz::seeds(target.name);
        for (const fuzz::Bytes& seed : seeds) {
            target.run(seed.data(), seed.size());
        }
        for (int i = 0; i < randomInputs; ++i) {
            const fuzz::Bytes input = randomInput(generator);
            target.run(input.data(), input.size());
        }
        std::printf("%s: %zu seeds, %d random inputs\n", target.name.data(), seeds.size(),
                    randomInputs);
    }
}

void exhaust(std::string_view only) {
    for (const fuzz::Target& target : fuzz::targets) {
        if (!only.empty() && only != target.name) {
            continue;
        }
        std::size_t inputs = 0;
        const auto run = [&](const fuzz::Bytes& input) {
            target.run(input.data(), input.size());
            ++inputs;
        };
        for (const fuzz::Bytes& seed : fuzz::seeds(target.name)) {
            if (seed.size() > largestExhausted) {
                continue;
            }
            // From buffers of exactly that size.
            for (std::size_t size = 0; size < seed.size(); ++size) {
                run(fuzz::Bytes(seed.begin(), seed.begin() + static_cast<std::ptrdiff_t>(size)));
            }
            for (std::size_t bit = 0; bit < seed.size() * 8; ++bit) {
                fuzz::Bytes flipped = seed;
                flipped[bit / 8] = static_cast<std::uint8_t>(flipped[bit / 8] ^ (1U << (bit % 8)));
                run(flipped);
            }
        }
        std::printf("%s: %zu inputs\n", target.name.data(), inputs);
    }
}

void writeSeeds(const std::filesystem::path& directory) {
    for (const fuzz::Target& target : fuzz::targets) {
        const std::filesystem::path place = directory / target.name;
        std::filesystem::create_directories(place);
        int number = 0;
        for (const fuzz::Bytes& seed : fuzz::seeds(target.name)) {
            std::ofstream file(place / std::to_string(number), std::ios::binary);
            file.write(reinterpret_cast<const char*>(seed.data()),
                       static_cast<std::streamsize>(seed.size()));
            file.close();
            if (!file) {
                throw std::runtime_error("cannot write into " + place.string());
            }
            ++number;
        }
    }
}

void replayFile(std::string_view name, const char* path) {
    std::ifstream file(path, std::ios::binary);
    if (!file) {
        throw std::runtime_error(std::string("cannot read ") + path);
    }
    const fuzz::Bytes input(std::istreambuf_iterator<char>(file), {});
    for (const fuzz::Target& target : fuzz::targets) {
        if (target.name == name) {
            target.run(input.data(), input.size());
            return;
        }
    }
    throw std::runtime_error("no target of the name " + std::string(name));
}

}  // namespace

int main(int argc, char** argv) {
    try {
        const std::string mode = argc > 1 ? argv[1] : "";
        if (argc == 1) {
            replay();
        } else if (argc <= 3 && mode == "--exhaustive") {
            exhaust(argc == 3 ? argv[2] : "");
        } else if (argc == 3 && mode == "--write") {
            writeSeeds(argv[2]);
        } else if (argc < 3) {
            throw std::runtime_error(
                "usage: fuzz_replay [--exhaustive [TARGET] | --write DIRECTORY | TARGET FILE...]");
        } else {
            for (int i = 2; i < argc; ++i) {
                replayFile(mode, argv[i]);
            }
        }
    } catch (const std::exception& failure) {
        static_cast<void>(std::fprintf(stderr, "fuzz_replay: %s\n", failure.what()));
        return 1;
    }
    return 0;
}
