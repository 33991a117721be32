#pragma once

#include <cstdint>

#include "calcut/export.h"

/// CRC-32 table of IEEE 802.3 (reflected polynomial 0xEDB88320), filled at build time.
extern CALCUT_EXPORT std::uint32_t crc32table[256];

/// CRC-32 of IEEE 802.3 over length bytes; 0 for none. data is never written to and may be null
/// when length is 0.
CALCUT_EXPORT std::uint32_t calc_crc32(unsigned char* data, unsigned long length);

/// The same for bytes that a caller may not write to.
inline std::uint32_t crc32Of(const std::uint8_t* data, std::uint64_t length) {
    return calc_crc32(const_cast<std::uint8_t*>(data), static_cast<unsigned long>(length));
}
