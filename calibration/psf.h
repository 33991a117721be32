#pragma once

#include <cstdint>

#include "calcut/vantric.h"

namespace vantric {

/// What vantric_allocateAndCalculatePsf answers before it asks for memory.
std::uint32_t psfStatus(const VantricCalibration& record);

}  // namespace vantric
