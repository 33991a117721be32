#pragma once

#include <cstdint>

#include "calcut/vantric_rx.h"

// The copy functions of the library's own table.

namespace vantric {

/// Bytes of the record from straylightScale to straylightPointCount.
constexpr std::uint64_t straylightSize = 140;
/// Floats of a straylight block.
constexpr std::uint32_t straylightWords = 32;

// Each checks sizes first and writes nothing when it fails, except that convertAndCopyDate
// terminates its target before it looks for room.

/// Writes the low byte of a source word to each entry of the target, to all destinationSize of
/// them, however many words the block had.
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

/// Makes the checks of copyWiggling and stores the count, for a table without arrays.
std::uint32_t checkWiggling(const void* source, std::uint64_t sourceSize, void* destination,
                            std::uint64_t destinationSize, std::uint8_t* countField);

/// Whether a copy function is one of these. They do not look behind the decoded block.
bool isOwnCopyFunction(RXCopyFunction copy);

}  // namespace vantric
