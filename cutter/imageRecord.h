#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <optional>
#include <span>
#include <string_view>

// What the descriptions of the two EEPROM images share. Each layout has a table of its header's
// fields and one pure function that finds the record; the readers, the command and the writer take
// everything they know of an image from there.

namespace calcut::image {

using Bytes = std::span<const std::uint8_t>;

/// How people are shown a field. Numbers are little-endian.
enum class Format : std::uint8_t { text, decimal, hexadecimal, bytes };

/// A field of an image header.
struct Field {
    const char* name;  ///< lower case words, for instance "payload length"
    std::size_t offset;
    std::size_t size;
    Format format;
    bool examined;  ///< false for fields that no check looks at
};

/// What a record was refused for; expected and found of the refusal are numbers of that kind.
enum class Cause : std::uint8_t {
    headerCutShort,  ///< bytes of a header, bytes left
    wrongMagic,      ///< no numbers
    wrongVersion,    ///< version or layout revision
    payloadOutside,  ///< bytes of the payload, bytes of it inside the file
    checksum         ///< CRC-32 computed, CRC-32 stored
};

/// Why a record is refused.
struct Refusal {
    const char* message;  ///< the system's own text, as the readers log it
    Cause cause;
    std::uint64_t offset;  ///< in the file, of the field to blame
    std::uint64_t expected;
    std::uint64_t found;
};

/// The record at a cursor, as far as its header tells.
struct Record {
    std::uint16_t blockId = 0;
    std::int64_t payloadOffset = 0;  ///< in the file; an address can lie before it
    std::uint64_t payloadLength = 0;
    std::uint64_t payloadPresent = 0;  ///< bytes of it that a checksum is taken over
    std::uint32_t storedCrc = 0;
    std::optional<std::uint32_t> computedCrc;  ///< once the checks came that far
    std::uint64_t next = 0;                    ///< where the cursor goes behind this record
    bool hasHeader = false;                    ///< false: nothing else is set but the refusal
    std::optional<Refusal> refusal;
};

/// The payload of a record that was not refused.
inline Bytes payloadOf(Bytes file, const Record& record) {
    // An empty one may lie anywhere.
    return record.payloadLength == 0 ? Bytes()
                                     : file.subspan(static_cast<std::size_t>(record.payloadOffset),
                                                    static_cast<std::size_t>(record.payloadLength));
}

/// Block ids of a record.
constexpr std::uint16_t plainBlockId = 7;
constexpr std::uint16_t signedBlockId = 37;  ///< the payload ends with a signature area

// Texts of the refusals.
constexpr const char* corrupted = "File is corrupted";
constexpr const char* invalidFormat = "Invalid file format";
constexpr const char* checksumFailed = "CRC32 failed (file)";

/// Why a header is not of a layout with that magic and version; nothing when it is. It lies at
/// offset in the file, the magic at its start, and found was read from versionField.
inline std::optional<Refusal> refusalOfFormat(const std::uint8_t* header, std::uint64_t offset,
                                              std::string_view magic, const Field& versionField,
                                              std::uint64_t version, std::uint64_t found) {
    // Another file altogether is better told by its magic.
    if (std::memcmp(header, magic.data(), magic.size()) != 0) {
        return Refusal{invalidFormat, Cause::wrongMagic, offset, 0, 0};
    }
    if (found != version) {
        return Refusal{invalidFormat, Cause::wrongVersion, offset + versionField.offset, version,
                       found};
    }
    return std::nullopt;
}

}  // namespace calcut::image
