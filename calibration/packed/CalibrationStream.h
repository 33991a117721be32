#pragma once

// The cursor and the one bounds check of the packed format.
#include <cstdint>

#include "calcut/vantric_rx.h"

namespace vantric {

/// The bytes at the cursor; for use behind vantric_canRead.
inline const std::uint8_t* cursorOf(const VantricStream& stream) {
    return stream.data + stream.position;
}

/// Bytes from the cursor to the end; it may stand behind the end.
inline std::uint64_t bytesLeft(const VantricStream& stream) {
    return stream.position <= stream.size ? stream.size - stream.position : 0;
}

}  // namespace vantric
