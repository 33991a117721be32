// The fuzz targets as plain functions: libFuzzer drives them in the fuzz build, replay_main.cpp in
// every build.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string_view>
#include <vector>

namespace fuzz {

using Bytes = std::vector<std::uint8_t>;

/// Arbitrary bytes through the whole calibration interface.
void calibration(const std::uint8_t* data, std::size_t size);
/// Arbitrary bytes as an image of either layout, through reader and cutter. The first byte says
/// which layout and whether magic and checksum are put right first.
void images(const std::uint8_t* data, std::size_t size);
/// A well-formed calibration whose blocks are changed as the input says.
void structured(const std::uint8_t* data, std::size_t size);
/// A calibration with the input's content: what the writer makes must read back equal.
void roundtrip(const std::uint8_t* data, std::size_t size);
/// Calls in the order that the input says, over records that live on.
void sequences(const std::uint8_t* data, std::size_t size);
/// The same, and any allocation of a call may be refused.
void exhaustion(const std::uint8_t* data, std::size_t size);
#ifdef CALCUT_FUZZ_TOOLS
/// Arbitrary bytes as the command shows, compares and exports them, and whether it foresees what a
/// cut returns. The first byte says which layout and whether the checksum is put right first.
void module(const std::uint8_t* data, std::size_t size);
/// Arbitrary bytes as a cut.json, and as the names and texts of a report.
void note(const std::uint8_t* data, std::size_t size);
#endif

struct Target {
    std::string_view name;
    void (*run)(const std::uint8_t* data, std::size_t size);
};
inline constexpr std::array targets = {
    Target{"calibration", calibration}, Target{"images", images},
    Target{"structured", structured},   Target{"roundtrip", roundtrip},
    Target{"sequences", sequences},     Target{"exhaustion", exhaustion},
#ifdef CALCUT_FUZZ_TOOLS
    Target{"module", module},           Target{"note", note},
#endif
};

/// Inputs to start from, made anew each time.
std::vector<Bytes> seeds(std::string_view target);

/// A broken invariant ends the process, which is what both drivers report.
inline void require(bool holds, const char* invariant) {
    if (!holds) {
        static_cast<void>(std::fprintf(stderr, "broken invariant: %s\n", invariant));
        std::abort();
    }
}

}  // namespace fuzz
