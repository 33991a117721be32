#pragma once

#include <cstdint>
#include <cstring>

#include "calcut/vantric_rx.h"

namespace vantric {

// Big-endian numbers at any alignment.

inline std::uint16_t bigEndian16(const std::uint8_t* p) {
    return static_cast<std::uint16_t>((p[0] << 8) | p[1]);
}

inline std::uint32_t bigEndian32(const std::uint8_t* p) {
    return (static_cast<std::uint32_t>(p[0]) << 24) | (static_cast<std::uint32_t>(p[1]) << 16) |
           (static_cast<std::uint32_t>(p[2]) << 8) | static_cast<std::uint32_t>(p[3]);
}

/// Decodes count RX floats from src to dest, both at any alignment.
void decodeRXFloats(const std::uint8_t* src, std::uint64_t count, std::uint8_t* dest);

/// Turns count big-endian 16-bit numbers at src into host numbers at dest, both at any alignment.
void decodeRXUint16s(const std::uint8_t* src, std::uint64_t count, std::uint8_t* dest);

/// The same for 32-bit numbers, signed or not.
void decodeRXUint32s(const std::uint8_t* src, std::uint64_t count, std::uint8_t* dest);

}  // namespace vantric
