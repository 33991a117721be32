#pragma once

#include <cstdint>
#include <vector>

/// Bytes that own themselves: the dump in memory, payloads, written files.
using ByteBuffer = std::vector<std::uint8_t>;
