// calcut make: dumps and packed calibrations for people who have no module at hand.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "tools/dump/Dump.h"

namespace calcut::tools {

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

/// Stores columns and rows, written as 224x172. Returns what is wrong with them; empty for nothing.
std::string parseSize(const std::string& text, MakeOptions& options);

/// Writes what the options describe. Returns the exit status.
int runMake(const MakeOptions& options);

}  // namespace calcut::tools
