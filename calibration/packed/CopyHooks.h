#pragma once

#include <cstdint>

#include "calcut/vantric_rx.h"

// The copy functions of the table that this library reads with. They are reached through the table,
// and by name only from tests.

namespace vantric {

/// Bytes of the record from straylightScale to straylightPointCount.
constexpr std::uint64_t straylightSize = 140;
/// Floats of a straylight block.
constexpr std::uint32_t straylightWords = 32;

// Copy functions: each checks sizes first and writes nothing when it fails (the date alone puts a
// terminator at the end of its target before it looks for room).

/// One byte per entry of the target, the low byte of a source word. destinationSize counts entries:
/// all of them are copied, however many words the block had.
std::uint32_t copyMask(const void* source, std::uint64_t sourceSize, void* destination,
                       std::uint64_t destinationSize, std::uint8_t* countField);
/// Appends " (value)" to the text in the target.
std::uint32_t convertAndCopyDate(const void* source, std::uint64_t sourceSize, void* destination,
                                 std::uint64_t destinationSize, std::uint8_t* countField);
/// Copies and terminates a text.
std::uint32_t copyString(const void* source, std::uint64_t sourceSize, void* destination,
                         std::uint64_t destinationSize, std::uint8_t* countField);
/// Fills the record from straylightScale (destination) to straylightPointCount.
std::uint32_t copyStraylight(const void* source, std::uint64_t sourceSize, void* destination,
                             std::uint64_t destinationSize, std::uint8_t* countField);
/// Fills a VantricWigglingTable; the table's capacity bounds it, destinationSize is ignored.
std::uint32_t copyWiggling(const void* source, std::uint64_t sourceSize, void* destination,
                           std::uint64_t destinationSize, std::uint8_t* countField);

/// What a walk has to provide for a copy function, and what follows from it.
struct CopyNeeds {
    enum class Scratch : std::uint8_t {
        unused,  ///< the block can be decoded straight to its destination
        block,   ///< the decoded block
        all      ///< of a host's function nothing is known: zeros behind the decoded block
    };

    RXCopyFunction copy;
    Scratch scratch;
    bool fillsMask;  ///< all of the destination, with zeros behind the block's values
    bool endsPsf;    ///< the PSF of an earlier profile is no longer that of the record
};
CopyNeeds needsOf(RXCopyFunction copy);
/// Bytes of zeros that the copy functions of a host may look at, which go by the destination's size
/// as copyMask does; 0 when all are the library's own.
std::uint64_t zeroedScratchOf(const RXBlockTable& table);

}  // namespace vantric
