// A file as the command sees it: its layout, the image header field by field, checksum and payload,
// the blocks of the calibration, the read's status, and the first fault in terms a person can act
// on. The library answers 0 or 1; this finds out why, without changing any result.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "calcut/vantric.h"
#include "calcut/vantric_rx.h"

namespace calcut::tools {

using ByteView = std::span<const std::uint8_t>;

enum class Layout { V7, Korveline, Packed, Unknown };

/// "v7", "korveline", "packed", "unknown": as in options and reports.
const char* layoutName(Layout layout);

/// The layout that the first bytes name.
Layout classify(ByteView file);

// ------------------------------------------------------------------------------------- reading --

enum class Source {
    RegularFile,  ///< what the library accepts as a dump: a regular file that is not empty
    Anything      ///< also pipes, and "-" for standard input; still not empty
};

/// Content of a file, or a reason why there is none ("No such file or directory", "is a directory",
/// "is empty", ...; without the path).
struct LoadedFile {
    std::vector<std::uint8_t> bytes;
    std::string error;  ///< empty on success
};
LoadedFile loadFile(const std::string& path, Source source);

// --------------------------------------------------------------------------------------- fault --

/// The first thing that keeps a file from being cut or read.
struct Fault {
    std::string what;                        ///< short name, for instance "CRC-32 mismatch"
    std::string expected;                    ///< empty when nothing particular was expected
    std::string found;                       ///< empty when there is nothing to show
    std::uint64_t offset = 0;                ///< byte offset in the file
    std::uint32_t status = VANTRIC_OK;       ///< of the calibration library, when that refused
    std::optional<std::uint32_t> blockId{};  ///< the block that failed or is missing
};

/// One line: "CRC-32 mismatch at byte 8 (0x8): expected 0x1234abcd, found 0x00000000".
std::string describe(const Fault& fault);

// --------------------------------------------------------------------------------------- image --

enum class FieldFormat {
    Text,    ///< ASCII, quoted
    Number,  ///< little-endian, decimal
    Hex,     ///< little-endian, hexadecimal
    Bytes    ///< as they are
};

/// One field of an image header, in file order.
struct ImageField {
    const char* name;  ///< lower case words, for instance "payload length"
    std::size_t offset;
    FieldFormat format;
    ByteView bytes;    ///< inside the file; shorter than size when the file ends in it
    std::size_t size;  ///< bytes that the field has in the layout
    bool examined;     ///< false for fields that no check looks at

    [[nodiscard]] std::uint64_t number() const;  ///< little-endian; only for size <= 8
};

/// Renders a field's value by its format.
std::string fieldText(const ImageField& field);

/// An image taken apart. Views point into the file given to parseImage.
struct Image {
    Layout layout = Layout::Unknown;
    std::size_t headerSize = 0;
    std::vector<ImageField> fields;  ///< those that begin inside the file

    std::optional<std::uint32_t> storedCrc;
    std::optional<std::uint32_t> computedCrc;  ///< over the bytes the reader takes, see below

    /// Payload as the header claims it; the offset can be negative for an address before the image.
    std::optional<std::int64_t> payloadOffset;
    std::uint64_t payloadLength = 0;
    bool payloadInside = false;
    ByteView payload;  ///< the bytes present (v7: up to the end of the file; else all or none)

    bool signatureArea = false;                   ///< payload type says so
    std::optional<std::uint8_t> signatureLength;  ///< when the area is present
    ByteView signature;                           ///< empty when the length is above 127

    /// The packed calibration: the payload without its signature area; for bare packed files the
    /// whole file. Also set when a fault lies before it, as far as its bytes are present.
    ByteView calibration;
    std::uint64_t calibrationOffset = 0;  ///< in the file

    std::optional<Fault> fault;  ///< first fault of the image itself, calibration not looked at
};

/// Takes a file apart as the given layout. Layout::Unknown gives an image with a fault about the
/// magic and nothing else.
Image parseImage(ByteView file, Layout layout);

/// What is left over once the calibration reads: a signature area without signature or with an
/// impossible length.
std::optional<Fault> signatureFault(const Image& image);

// --------------------------------------------------------------------------------- calibration --

/// A block as it lies in the file.
struct BlockPosition {
    std::uint64_t offset = 0;         ///< of the block header, from the calibration's start
    std::uint64_t payloadOffset = 0;  ///< likewise
    std::uint64_t packedSize = 0;     ///< payload bytes in the file
    RXBlockHeader header{};
    bool known = false;   ///< the reader has a table entry for this id
    bool custom = false;  ///< id 128 or above: skipped as custom block
};

/// The walk over the block headers, without decoding.
struct BlockWalk {
    std::uint32_t headerStatus =
        VANTRIC_OK;  ///< of the file header; nothing else is set on failure
    RXHeader header{};
    std::vector<BlockPosition> blocks;  ///< in file order, up to the end marker or the fault
    std::uint64_t endOffset = 0;        ///< of the end marker, or where the walk had to stop
    bool endMarker = false;             ///< the walk reached it
    std::uint32_t status = VANTRIC_OK;  ///< why the walk stopped when it did not
};
BlockWalk walkBlocks(ByteView calibration);

struct CalibrationDeleter {
    void operator()(VantricCalibration* record) const { vantric_freeCalibration(record); }
};
using CalibrationPtr = std::unique_ptr<VantricCalibration, CalibrationDeleter>;

/// A read with the block that stopped it.
struct CalibrationRead {
    std::uint32_t status = VANTRIC_OK;
    std::uint32_t failedBlockId = 255;  ///< 255: no block
    /// The record, complete with status 0. After a failure it is the partly filled one when there
    /// is one: only what the blocks before the fault carry is set, everything else (counts, lens
    /// parameters, tables) is undefined or at its defaults.
    CalibrationPtr record;
    std::optional<Fault> fault;  ///< set when status is not VANTRIC_OK
};

/// Reads a packed calibration. offset is where it starts in the file (for the fault's offset).
/// Replaces the registered calibration handlers for the time of the call, so no other thread may
/// read calibrations meanwhile.
CalibrationRead readCalibration(ByteView calibration, std::uint64_t offset,
                                bool withPsfAndDirections);

/// The first fault of a whole dump: image, calibration, signature; none when it can be cut.
std::optional<Fault> diagnose(ByteView file, Layout layout);

}  // namespace calcut::tools
