/*
 * The checksum of both EEPROM images, for C++ hosts (C++17 or later; the names have C++ linkage).
 * It is the CRC-32 of IEEE 802.3, as in Ethernet, zlib and PNG: reflected polynomial 0xEDB88320,
 * initial value and final inversion 0xFFFFFFFF. The nine characters "123456789" give 0xCBF43926.
 */
#ifndef CALCUT_CRC32_H
#define CALCUT_CRC32_H

#ifndef __cplusplus
#error "calcut/crc32.h is for C++: its functions have C++ linkage"
#endif

#include <cstdint>

#include "calcut/export.h"

/** Entry i is what eight steps of the reflected polynomial make of byte i. Not to be written to. */
extern CALCUT_EXPORT std::uint32_t crc32table[256];

/**
 * CRC-32 of a run of bytes.
 * @param data    length bytes; never written to, and may be null when length is 0
 * @param length  bytes
 * @return the checksum; 0 for no bytes
 */
CALCUT_EXPORT std::uint32_t calc_crc32(unsigned char* data, unsigned long length);

#endif
