#pragma once

// The handler registry, beside its exported functions.
#include <cstddef>
#include <cstdint>

#include "calcut/vantric.h"
#include "calibration/owners.h"
#include "calibration/Wanted.h"

namespace vantric {

/// What reading through the registry came to.
struct HandlerRead {
    std::uint32_t status = VANTRIC_OK;
    RecordOwner record;           ///< set when status is VANTRIC_OK or VANTRIC_WARN_PARTIAL
    std::uint32_t numPixels = 0;  ///< for which the record was made
    bool isWhole = true;  ///< false: the library's own handler left out what a cut does not need
};

/// vantric_readCalibrationExt with what is wanted. The handlers are asked exactly the same, and the
/// status is the same; a host's handler gets a whole record in either case.
HandlerRead readThroughHandlers(const std::uint8_t* data, std::size_t size, Wanted wanted,
                                bool withPsfAndDirections);

}  // namespace vantric
