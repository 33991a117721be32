#pragma once

#include <array>
#include <string_view>

#include "cutter/imageRecord.h"

// The Korveline image. Little-endian; the header is always that at the start of the file, and the
// payload lies where its EEPROM address says. The meaning of most fields is unknown; they are kept
// as found and named by their offsets.
//
// clang-format off
//
//     0           9       13         16              41     42      52        56       58    62      88     104
//     +-----------+-------+----------+---------------+------+-------+---------+--------+-----+-------+------+
//     | KORVELINE | kept  | revision | kept          | type | kept  | address | length | CRC | kept  |      |
//     +-----------+-------+----------+---------------+------+-------+---------+--------+-----+-------+------+
//
// The payload of a signed type ends with a signature area:
//
//     0        1                             128
//     +--------+-----------------------------+
//     | length | signature, up to 127 bytes  |
//     +--------+-----------------------------+
//
// clang-format on

namespace calcut::image::korveline {

constexpr std::string_view magic = "KORVELINE";
constexpr std::uint32_t revision = 327;
constexpr std::size_t headerSize = 104;
/// EEPROM address of the image's first byte.
constexpr std::uint32_t baseAddress = 0x2000;
constexpr std::size_t maxPayload = 0xFFFF;

/// Payload types that carry a signature area.
constexpr std::array<std::uint8_t, 2> signedTypes = {22, 28};
constexpr std::size_t signatureLengthSize = 1;
constexpr std::size_t maxSignature = 127;
constexpr std::size_t signatureArea = signatureLengthSize + maxSignature;

enum FieldIndex : std::size_t {
    fieldMagic,
    field9,
    fieldRevision,
    field16,
    field22,
    field26,
    fieldType,
    field42,
    field46,
    fieldAddress,
    fieldLength,
    fieldCrc,
    field62,
    field63,
    field69,
    fieldUnread,
    fieldCount
};

constexpr std::array<Field, fieldCount> fields = {{
    {"magic", 0, 9, Format::text, true},
    {"field 9", 9, 4, Format::hexadecimal, false},
    {"layout revision", 13, 3, Format::decimal, true},
    {"field 16", 16, 6, Format::bytes, false},
    {"field 22", 22, 4, Format::hexadecimal, false},
    {"field 26", 26, 15, Format::bytes, false},
    {"payload type", 41, 1, Format::decimal, true},
    {"field 42", 42, 4, Format::hexadecimal, false},
    {"field 46", 46, 6, Format::bytes, false},
    {"payload address", 52, 4, Format::hexadecimal, true},
    {"payload length", 56, 2, Format::decimal, true},
    {"payload CRC-32", 58, 4, Format::hexadecimal, true},
    {"field 62", 62, 1, Format::decimal, false},
    {"field 63", 63, 6, Format::bytes, false},
    {"field 69", 69, 19, Format::bytes, false},
    {"not read", 88, 16, Format::bytes, false},
}};
static_assert(fields.back().offset + fields.back().size == headerSize &&
              magic.size() == fields[fieldMagic].size);

/// Checks the record: room for a header at the cursor, revision and magic, checksum, range of the
/// payload, in this order. cursor <= image.size().
Record locate(Bytes image, std::uint64_t cursor);

}  // namespace calcut::image::korveline
