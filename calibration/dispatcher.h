#pragma once

// Reading through the handler registry, for the library itself.
#include <cstddef>
#include <cstdint>

#include "calcut/vantric.h"
#include "calibration/owners.h"
#include "calibration/Wanted.h"

namespace vantric {

/// Result of a read through the registry.
struct HandlerRead {
    std::uint32_t status = VANTRIC_OK;
    RecordOwner record;           ///< set when status is VANTRIC_OK or VANTRIC_WARN_PARTIAL
    std::uint32_t numPixels = 0;  ///< that the record was made for
    bool isWhole = true;  ///< false: the library's own handler left out what a cut does not need
};

/// vantric_readCalibrationExt for a part of the calibration. The calls of the handlers and the
/// status are the same; a host's handler always gets a whole record.
HandlerRead readThroughHandlers(const std::uint8_t* data, std::size_t size, Wanted wanted,
                                bool withPsfAndDirections);

}  // namespace vantric
