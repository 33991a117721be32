// Faults and warnings: what is told about each, and who looks for it.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "calibration/packed/Refusal.h"
#include "tools/module/Layout.h"

namespace calcut::module {

struct Diagnosis;

/// A fault or a warning, in terms that a person can act on.
struct Finding {
    std::string name{};        ///< stable, for machines: "checksum", "unknown-block", ...
    std::string what{};        ///< short, for people: "CRC-32 mismatch"
    std::string expected{};    ///< empty when nothing particular was expected
    std::string found{};       ///< empty when there is nothing to show
    std::string advice{};      ///< what to do next; for each name the same but for numbers in it
    std::uint64_t offset = 0;  ///< in the file
    std::optional<std::uint32_t> blockId{};
    std::uint32_t status = VANTRIC_OK;  ///< of the calibration library, when that refused
};

/// What the warnings of a file that reads can be called.
inline constexpr std::array warningNames = {
    "unknown-block", "custom-fields",  "trailing-bytes", "uncut-signature", "ends-in-signature",
    "focal-length",  "focal-ratio",    "centre",         "folded",          "half-masked",
    "all-masked",    "constant-table", "stuck-region",   "outlier"};

/// One line: "CRC-32 mismatch at byte 8 (0x8): expected 0x1234abcd, found 0x00000000; read the part
/// again".
std::string describe(const Finding& finding);

/// Below a checksum that matches there is no reading error.
inline constexpr const char* askWriter =
    "reading the part again does not help where its checksum matches: ask whoever calibrated the "
    "module";

/// About a file that does not begin with the magic of its layout (Unknown: with none), with the
/// reason where one can be told.
Finding wrongMagic(files::ByteView file, const Layout& layout);

/// About an image whose record was refused.
Finding imageFault(const Diagnosis& about);

/// About a calibration that was refused. The refusal's offset counts from the start of the file;
/// blockId is nothing where no block is to blame.
Finding readFault(const Diagnosis& about, const vantric::Refusal& refusal,
                  std::optional<std::uint32_t> blockId);

/// Adds what is odd about a file that reads, or about the parts of one that do.
void addWarnings(Diagnosis& dump);

/// What is odd about the per-pixel tables of a diagnosis with everything wanted. Apart from the
/// others because it takes about a millisecond, which a cut does not spend.
std::vector<Finding> tableWarnings(const Diagnosis& dump);

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

/// Text of a magic, or what stands in its place, in quotes; what is not printable ASCII becomes
/// \xNN.
std::string quotedBytes(files::ByteView bytes);

}  // namespace calcut::module
