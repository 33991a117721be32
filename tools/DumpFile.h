// A file as the command sees it: its layout, the image header field by field, checksum and payload,
// and the first fault. The library answers 0 or 1; this finds out why, without changing any result.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "Fault.h"
#include "PackedFile.h"

namespace calcut::tools {

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

/// The first fault of a whole dump: image, calibration, signature; none when it can be cut.
std::optional<Fault> diagnose(ByteView file, Layout layout);

}  // namespace calcut::tools
