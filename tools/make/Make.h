// calcut make: dumps and packed calibrations for people who have no module at hand.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "tools/dump/Dump.h"

namespace calcut::tools {

/// Far above any sensor, and small enough not to bring a machine down by a typing error.
inline constexpr std::uint64_t leastMadePixels = 4;
inline constexpr std::uint64_t mostMadePixels = std::uint64_t{1} << 24;

struct MakeOptions {
    Layout layout = Layout::V7;  ///< Packed: no image around the calibration
    std::optional<unsigned> signature;
    std::uint16_t columns = 224, rows = 172;
    unsigned frequencies = 3;
    bool straylight = true;
    unsigned custom = 2;
    std::optional<unsigned> tableBits;
    float straylightExponent = 2.0F;
    std::uint64_t seed = 1;
    std::string output;
    bool force = false;
};

/// Writes what the options describe. Returns the exit status.
int runMake(const MakeOptions& options);

}  // namespace calcut::tools
