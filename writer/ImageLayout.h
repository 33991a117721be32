// Where the fields of the two EEPROM images lie. All numbers in the images are little-endian.
//
//  v7                                        Korveline
//   0  magic "QOVRIN"            6            0  magic "KORVELINE"         9
//   6  version, 7                2            9  (kept, not examined)      4
//   8  CRC-32 of the payload     4           13  layout revision, 327      3
//  12  payload length            4           16  (kept, not examined)     25
//  16  (not read)               51           41  payload type              1
//  67  payload                               42  (kept, not examined)     10
//                                            52  payload address           4
//                                            56  payload length            2
//                                            58  CRC-32 of the payload     4
//                                            62  (kept, not examined)     26
//                                            88  (not read)               16
//                                           104  anything; the payload is found by its address
//
// A Korveline payload of type 22 or 28 ends with a signature area: one length byte and 127 bytes.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace calcut::image {

namespace v7 {
inline constexpr std::string_view magic = "QOVRIN";
inline constexpr std::uint16_t version = 7;
inline constexpr std::size_t versionOffset = 6;
inline constexpr std::size_t crcOffset = 8;
inline constexpr std::size_t lengthOffset = 12;
inline constexpr std::size_t unreadOffset = 16;
inline constexpr std::size_t headerSize = 67;
}  // namespace v7

namespace korveline {
inline constexpr std::string_view magic = "KORVELINE";
inline constexpr std::uint32_t revision = 327;
inline constexpr std::size_t field9Offset = 9;
inline constexpr std::size_t revisionOffset = 13;
inline constexpr std::size_t field16Offset = 16;
inline constexpr std::size_t field22Offset = 22;
inline constexpr std::size_t field26Offset = 26;
inline constexpr std::size_t typeOffset = 41;
inline constexpr std::size_t field42Offset = 42;
inline constexpr std::size_t field46Offset = 46;
inline constexpr std::size_t addressOffset = 52;
inline constexpr std::size_t lengthOffset = 56;
inline constexpr std::size_t crcOffset = 58;
inline constexpr std::size_t field62Offset = 62;
inline constexpr std::size_t field63Offset = 63;
inline constexpr std::size_t field69Offset = 69;
inline constexpr std::size_t unreadOffset = 88;
inline constexpr std::size_t headerSize = 104;

/// EEPROM address of the image's first byte.
inline constexpr std::uint32_t baseAddress = 0x2000;
inline constexpr std::size_t maxPayload = 0xFFFF;

/// Payload types that carry a signature area.
inline constexpr std::uint8_t signedTypeA = 22;
inline constexpr std::uint8_t signedTypeB = 28;
inline constexpr std::size_t signatureArea = 128;
inline constexpr std::size_t maxSignature = signatureArea - 1;
}  // namespace korveline

/// Bare packed calibrations start with this.
inline constexpr std::string_view packedMagic = "QOVRXF";

}  // namespace calcut::image
