#pragma once

#include <cstdint>

namespace vantric {

/// What a reader wants of a calibration. The status is the same for either.
enum class Wanted : std::uint8_t {
    everything,
    /// All but the per-pixel tables, directions and PSF, which are checked and neither allocated
    /// nor computed.
    cut
};

}  // namespace vantric
