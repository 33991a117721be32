#pragma once

#include <cstdint>

// The images are little-endian.

inline std::uint16_t littleEndian16(const std::uint8_t* p) {
    return static_cast<std::uint16_t>(p[0] | (p[1] << 8));
}

inline std::uint32_t littleEndian24(const std::uint8_t* p) {
    return littleEndian16(p) | (static_cast<std::uint32_t>(p[2]) << 16);
}

inline std::uint32_t littleEndian32(const std::uint8_t* p) {
    return littleEndian24(p) | (static_cast<std::uint32_t>(p[3]) << 24);
}
