#pragma once

#include <array>
#include <string_view>

#include "cutter/imageRecord.h"

// The v7 image. Little-endian; the record starts at the cursor, the first byte of the file at
// first.
//
// clang-format off
//
//     0       6      8      12      16                 67
//     +-------+------+------+-------+------------------+---------+
//     |QOVRIN | ver. | CRC  | length| not examined     | payload |
//     +-------+------+------+-------+------------------+---------+
//
// clang-format on

namespace calcut::image::v7 {

constexpr std::string_view magic = "QOVRIN";
constexpr std::uint16_t version = 7;
constexpr std::size_t headerSize = 67;
constexpr std::size_t maxPayload = 0xFFFFFFFF;

enum FieldIndex : std::size_t {
    fieldMagic,
    fieldVersion,
    fieldCrc,
    fieldLength,
    fieldUnread,
    fieldCount
};

constexpr std::array<Field, fieldCount> fields = {{
    {"magic", 0, 6, Format::text, true},
    {"version", 6, 2, Format::decimal, true},
    {"payload CRC-32", 8, 4, Format::hexadecimal, true},
    {"payload length", 12, 4, Format::decimal, true},
    {"not read", 16, 51, Format::bytes, false},
}};
static_assert(fields.back().offset + fields.back().size == headerSize &&
              magic.size() == fields[fieldMagic].size);

/// Checks the record at the cursor: size of the header, version and magic, checksum, range of the
/// payload, in this order. cursor <= image.size().
Record locate(Bytes image, std::uint64_t cursor);

}  // namespace calcut::image::v7
