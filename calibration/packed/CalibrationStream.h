#pragma once

// The cursor and the one bounds check of the packed format.
#include <cstdint>

#include "calcut/vantric_rx.h"

namespace vantric {

/// The bytes at the cursor; for use behind vantric_canRead.
inline const std::uint8_t* cursorOf(const VantricStream& stream) {
    return stream.data + stream.position;
}

}  // namespace vantric
