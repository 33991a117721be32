// The first fault of a file in terms a person can act on, and the words it is made of.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "calcut/vantric.h"

namespace calcut::tools {

using ByteView = std::span<const std::uint8_t>;

/// The first thing that keeps a file from being cut or read.
struct Fault {
    std::string what;                        ///< short name, for instance "CRC-32 mismatch"
    std::string expected;                    ///< empty when nothing particular was expected
    std::string found;                       ///< empty when there is nothing to show
    std::uint64_t offset = 0;                ///< byte offset in the file
    std::uint32_t status = VANTRIC_OK;       ///< of the calibration library, when that refused
    std::optional<std::uint32_t> blockId{};  ///< the block that failed or is missing
};

/// One line: "CRC-32 mismatch at byte 8 (0x8): expected 0x1234abcd, found 0x00000000".
std::string describe(const Fault& fault);

// ---------------------------------------------------------------------------------- its words --

/// "1 byte", "2 bytes"
std::string byteCount(std::uint64_t count);

/// Text in quotes.
std::string quoted(std::string_view text);

/// Bytes as text in quotes, with escapes for what is not printable ASCII.
std::string printable(ByteView bytes);

/// Bytes from offset on, at most size, as far as they exist.
ByteView part(ByteView bytes, std::uint64_t offset, std::uint64_t size);

/// True when the bytes begin with these characters.
bool startsWith(ByteView bytes, std::string_view magic);

}  // namespace calcut::tools
