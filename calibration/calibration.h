#pragma once

#include <cstdint>

#include "calcut/vantric.h"
#include "calibration/Wanted.h"

namespace vantric {

/// Layout marker of records; the field functions refuse any other.
constexpr std::uint16_t recordVersion = 1;

constexpr std::uint32_t floatsPerDirection = 3;

/// A new record for numPixels pixels, with every default set and zero-filled buffers. Never null:
/// out of memory for the record, its texts, idBytes or customFields aborts the process, so these
/// are allocated before everything whose size a file decides. Any other buffer is null when it
/// cannot be allocated or is not wanted.
VantricCalibration* allocateCalibration(std::uint32_t numPixels,
                                        Wanted wanted = Wanted::everything);

/// columns x rows, wide enough for any image.
std::uint64_t pixelsOf(const VantricImagerArea& area);

/// Elements of a PSF of psfWidth x psfHeight, at least 1; 0 when that is unset or too large.
std::uint64_t psfElementsOf(const VantricCalibration& record);

/// Entries of customFields in use, never more than there are.
std::uint32_t customFieldsInUse(const VantricCalibration& record);

}  // namespace vantric
