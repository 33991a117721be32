#pragma once

#include <cstdint>

#include "calcut/crc32.h"

/// The same for bytes that a caller may not write to.
inline std::uint32_t crc32Of(const std::uint8_t* data, std::uint64_t length) {
    return calc_crc32(const_cast<std::uint8_t*>(data), static_cast<unsigned long>(length));
}
