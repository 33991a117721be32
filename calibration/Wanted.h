#pragma once

#include <cstdint>

namespace vantric {

/// What a reader wants of a calibration. All parts are checked whatever is wanted, so the status is
/// always the same; what is not wanted is neither allocated nor computed.
enum class Wanted : std::uint8_t {
    everything,
    /// All but the per-pixel tables (pixelValues and each pixelTable), directions and PSF.
    withoutTables,
    /// What a cut needs: without tables, and without the small arrays of the frequencies. For
    /// records that never leave the library.
    cut
};

}  // namespace vantric
