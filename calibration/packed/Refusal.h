#pragma once

#include <cstdint>

#include "calcut/vantric.h"

namespace vantric {

/// Why a packed calibration was refused. In brackets: the meaning of the refusal's expected and
/// found.
enum class Cause : std::uint8_t {
    none,
    headerCutShort,       ///< file header (its bytes; bytes there)
    wrongMagic,           ///< (nothing)
    wrongVersion,         ///< (the version that is read; the file's)
    noPixels,             ///< columns or rows are 0 (1; 0)
    tooManyPixels,        ///< not countable as signed 32 bits (largest count; pixels)
    recordTooSmall,       ///< the record has room for fewer pixels (its; the file's)
    outOfMemory,          ///< (nothing)
    blockHeaderCutShort,  ///< (bytes that the next field needs; bytes there)
    unknownKind,          ///< (largest kind; kind)
    idsNotAscending,      ///< (id before; id)
    wrongKind,            ///< (acceptable kind, the other one in alsoExpected; kind)
    tooFewElements,       ///< (minimum count; count)
    tooLarge,             ///< decoded, for its place in the record (room; bytes)
    tooLargeToUnpack,     ///< packed and unpacked, for the scratch (room; bytes)
    payloadCutShort,      ///< (bytes of the payload; bytes there)
    wrongBits,            ///< (largest width; width)
    tooFewWords,          ///< the size, rounded in single precision, is too small (count; 0)
    wrongContent,         ///< a copy function's own check (room in the record; decoded bytes)
    tooManyCustomBlocks,  ///< (largest number; number)
    missingBlock,         ///< (nothing); the offset is that of the end marker
    withoutFrequency,     ///< the first block of its frequency is missing (that id; id)
    valueUnset,           ///< (nothing)
    incomplete,           ///< a host's own check of the whole calibration (nothing)
    psfTooLarge,          ///< (largest number of elements; elements)
    noPsf                 ///< any other reason why directions or PSF cannot be made (nothing)
};

/// Why something was refused, and where. status is VANTRIC_OK when nothing was.
struct Refusal {
    std::uint32_t status = VANTRIC_OK;
    Cause cause = Cause::none;
    std::uint64_t offset = 0;  ///< of the byte to blame, from the start of the stream's data
    std::uint64_t expected = 0;
    std::uint64_t found = 0;
    std::uint64_t alsoExpected = 0;  ///< second acceptable value; expected again when there is none

    [[nodiscard]] bool refused() const { return status != VANTRIC_OK; }
};

/// A refusal with one acceptable value.
inline Refusal refusedFor(std::uint32_t status, Cause cause, std::uint64_t offset,
                          std::uint64_t expected, std::uint64_t found) {
    return {status, cause, offset, expected, found, expected};
}

}  // namespace vantric
