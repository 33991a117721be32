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

/// The checks of copyWiggling, for a table without arrays.
std::uint32_t checkWiggling(const void* source, std::uint64_t sourceSize, void* destination,
                            std::uint64_t destinationSize, std::uint8_t* countField);

/// Whether a copy function is one of these, which look at nothing behind the decoded block.
bool isOwnCopyFunction(RXCopyFunction copy);

}  // namespace vantric
