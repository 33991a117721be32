// Everything that is to be known about one dump or packed calibration, gathered once: the text and
// JSON of "calcut inspect" and the sheet of "calcut plot" only render what stands here.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "calcut/vantric.h"
#include "calcut/vantric_rx.h"
#include "DumpFile.h"

namespace calcut::tools {

/// Smallest and largest decoded value of a block. A double holds each integer and float of the
/// format exactly.
struct ValueRange {
    double low = 0.0;
    double high = 0.0;
    bool whole = false;           ///< the block holds integers
    std::uint64_t finite = 0;     ///< values that low and high speak of
    std::uint64_t notFinite = 0;  ///< infinities, left out of the range
};

enum class BlockOutcome {
    Read,     ///< decoded into the record, or counted as a custom block
    Ignored,  ///< unknown id below 128: the reader looks for the next header right behind this one
    Failed,   ///< the read stopped here
    NotReached  ///< behind the block that stopped the read
};

/// "read", "ignored", "failed", "not reached".
const char* outcomeName(BlockOutcome outcome);

struct BlockReport {
    RXBlockHeader header{};
    std::string name;
    bool custom = false;
    std::uint64_t offset = 0;         ///< of the header, in the file
    std::uint64_t payloadOffset = 0;  ///< in the file
    std::uint64_t payloadBytes = 0;
    BlockOutcome outcome = BlockOutcome::Read;
    std::optional<ValueRange> range;  ///< none for an empty, incomplete or undecodable payload
};

struct WigglingReport {
    std::uint32_t header = 0;  ///< bits of the block's first word
    std::vector<float> third;
    std::vector<float> first;
    std::vector<std::uint32_t> second;
};

/// The parts are empty where the calibration was not read that far.
struct FrequencyReport {
    unsigned index = 0;
    std::uint32_t id = 0;
    const float* pixelTable = nullptr;  ///< columns x rows, owned by the record
    std::vector<float> valuesA;
    std::vector<float> valuesB;
    std::optional<float> scalar;
    std::optional<WigglingReport> wigglingA;
    std::optional<WigglingReport> wigglingB;
};

struct StraylightReport {
    float scale = 0.0F;
    std::vector<float> radius;  ///< as stored, without the origin that the PSF puts in front
    std::vector<float> value;
    float exponent = 0.0F;
    float offset = 0.0F;
    float centre = 0.0F;
    std::uint32_t psfWidth = 0;
    std::uint32_t psfHeight = 0;
};

struct CustomReport {
    std::uint32_t blockId = 0;
    std::vector<std::uint8_t> bytes;
};

/// Names of the nine lens parameters in the record's order.
inline constexpr std::array<const char*, VANTRIC_LENS_PARAMETERS> lensParameterNames = {
    "fx", "fy", "cx", "cy", "k1", "k2", "p1", "p2", "k3"};

/// What was decoded. A part is empty when its block is absent or lies behind a fault.
struct RecordReport {
    std::uint32_t columns = 0;
    std::uint32_t rows = 0;
    std::optional<std::uint8_t> auxFlag;
    std::optional<std::array<float, VANTRIC_LENS_PARAMETERS>> lens;
    std::optional<std::string> text0, text1, text2;  ///< bytes as stored; escape before printing
    std::vector<std::uint8_t> idBytes;
    std::optional<std::array<std::uint16_t, 2>> idCodes;
    const std::uint8_t* pixelMask = nullptr;  ///< columns x rows, owned by the record; 0 is masked
    const float* pixelValues = nullptr;       ///< likewise
    std::uint64_t maskedPixels = 0;           ///< zeros of the whole mask
    std::uint64_t zeroMaskCount = 0;          ///< zeros among the pixels that a cut looks at
    std::vector<FrequencyReport> frequencies;
    std::optional<StraylightReport> straylight;
    std::vector<CustomReport> custom;
    std::uint32_t customStatus = VANTRIC_OK;  ///< of the second pass, which copies custom blocks
    const float* directions = nullptr;        ///< 3 x columns x rows; only after a full read
    const float* psf = nullptr;               ///< psfWidth x psfHeight; only after a full read
};

struct CalibrationReport {
    std::string path;
    std::vector<std::uint8_t> file;  ///< image views into it
    Image image;

    BlockWalk walk;
    std::vector<BlockReport> blocks;
    std::uint64_t trailingBytes = 0;  ///< behind the end marker, signature area not counted

    /// Status of the read including directions and PSF; empty when the header was so far from the
    /// file's size that the calibration was not handed to the reader.
    std::optional<std::uint32_t> status;
    std::uint32_t failedBlockId = VANTRIC_RX_END_MARKER;  ///< the end marker's id: no block
    CalibrationPtr calibration;                           ///< what record points into; may be null
    std::optional<RecordReport> record;

    /// Why the file is refused: image, calibration, signature, in the order of a cut.
    std::vector<Fault> faults;

    [[nodiscard]] bool intact() const { return faults.empty() && status == VANTRIC_OK; }
};

/// Gathers the report. Never throws for the sake of the file's content.
CalibrationReport makeReport(std::string path, std::vector<std::uint8_t> file, Layout layout);

/// Bytes of unknown origin made fit for a terminal: printable ASCII as it is, a backslash doubled,
/// everything else as \xNN.
std::string escapeBytes(std::string_view bytes);

/// A path for people: UTF-8 stays, control characters and what is no UTF-8 become \xNN.
std::string escapePath(std::string_view path);

/// Lower case hexadecimal, two digits a byte.
std::string hexText(ByteView bytes);

}  // namespace calcut::tools
