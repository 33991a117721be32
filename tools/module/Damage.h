// What can have happened to an image whose checksum does not match.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace calcut::module {

struct Diagnosis;

/// Flipped bits close to each other. Bit 0 of a byte is its lowest.
struct FlippedBits {
    std::uint64_t firstBit = 0;  ///< counted from the first byte of the data
    unsigned width = 1;          ///< from the first flipped bit to the last one, 1 to 8
    std::uint64_t oneIn = 0;  ///< by chance, data with other damage look like this once in so many
};

/// The narrowest burst of flipped bits in so many bytes that changes their CRC-32 by difference
/// (exclusive or). Wide bursts are left out where more than one in 64 would be there by chance:
/// above 64 KiB 8 bits, above 8 MiB even single bits. Takes about a millisecond for 64 KiB.
std::optional<FlippedBits> findFlippedBits(std::uint32_t difference, std::uint64_t bytes);

/// What would explain a checksum that does not match, as the end of a finding; empty for nothing.
/// The blocks must have been looked at.
std::string explainChecksum(const Diagnosis& about);

}  // namespace calcut::module
