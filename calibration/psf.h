#pragma once

#include <cstdint>

#include "calcut/vantric.h"

namespace vantric {

/// The status of vantric_allocateAndCalculatePsf, provided there is memory.
std::uint32_t psfStatus(const VantricCalibration& record);

}  // namespace vantric
