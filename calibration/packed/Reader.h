#pragma once

// The walk over the blocks; declared in the public header.
#include <cstdint>

#include "calcut/vantric_rx.h"

namespace vantric {

/// Type code of the calibrations of this format.
constexpr std::uint16_t packedCalibrationType = 3;

/// failedBlockId of a read in which no block is to blame.
constexpr std::uint32_t noFailedBlock = 255;

}  // namespace vantric
