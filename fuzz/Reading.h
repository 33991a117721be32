#pragma once

#include <cstdint>

#include "calibration/owners.h"

namespace fuzz {

using Record = vantric::RecordOwner;

/// columns x rows of a record's image.
std::uint64_t imagePixels(const VantricCalibration& record);

/// Reads whatever the record says it holds, for an image of that many pixels: what a host may do.
void touchRecord(const VantricCalibration& record, std::uint64_t pixels);

/// The same for the record's own image, with the care that records need after failed reads: counts
/// may be above their buffers' capacity, and a PSF need not have the size that is named.
void touchLiveRecord(const VantricCalibration& record);

/// Size and value of every field id, with room for exactly the value. customRead: none of them may
/// be unread.
void everyField(const VantricCalibration& record, bool customRead);

}  // namespace fuzz
