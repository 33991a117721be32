#pragma once

#include <cstdint>

#include "calcut/vantric.h"
#include "calibration/Wanted.h"

namespace vantric {

/// Layout marker of records; the field functions refuse any other.
constexpr std::uint16_t recordVersion = 1;

constexpr std::uint32_t floatsPerDirection = 3;

/// A new record with every default set, made for numPixels pixels; buffers are zero-filled. Never
/// null: out of memory for the record, its texts, idBytes or customFields aborts the process, which
/// is why they come before everything whose size a file decides. Any other buffer that cannot be
/// allocated is null and counts as a place of size 0. So are buffers that are not wanted.
VantricCalibration* allocateCalibration(std::uint32_t numPixels,
                                        Wanted wanted = Wanted::everything);

/// columns x rows, wide enough for any image.
std::uint64_t pixelsOf(const VantricImagerArea& area);

/// Elements of a PSF of the record's size, at least 1; 0 when its size is unset or too large.
std::uint64_t psfElementsOf(const VantricCalibration& record);

/// Entries of customFields in use, never more than there are.
std::uint32_t customFieldsInUse(const VantricCalibration& record);

}  // namespace vantric
