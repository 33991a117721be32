// Makes packed calibrations and EEPROM dumps: the exact inverse of the readers, for people who have
// no module at hand and for the tests. docs/formats.md draws what is written here.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <set>
#include <span>
#include <string>
#include <vector>

#include "calcut/cutter.h"

namespace calcut::writer {

using Bytes = std::vector<std::uint8_t>;

// ---------------------------------------------------------------------------------- encodings --

/// Word of the packed format's float whose decoding is nearest to value; 0 for 0.0. Exact for every
/// normal float; values too small for the format become 0. Infinities and NaN become the largest
/// magnitude (the format has none).
std::uint32_t encodeRXFloat(float value);

/// Values of bits bits each (1 to 31), packed least significant bit first into 32-bit words. Bits
/// of a value above its width are dropped.
std::vector<std::uint32_t> packBits(std::span<const std::uint32_t> values, unsigned bits);

/// value = offset + scale * integer
struct FixedPoint {
    float scale = 1.0F;
    float offset = 0.0F;
};

/// Scale and offset that spread the integers of bits bits over [low, high].
FixedPoint fixedPointFor(float low, float high, unsigned bits);

/// The integer whose decoding lies nearest to value, clamped to bits bits.
std::uint32_t quantise(float value, const FixedPoint& fixedPoint, unsigned bits);

// --------------------------------------------------------------------------------- the blocks --

/// How a block header carries its count.
enum class CountForm {
    Short,  ///< one byte where the count has such a code (per pixel codes first), else long
    Long,   ///< always code 249 and four bytes
};

/// Appends blocks to a packed calibration. Ids are written as given, in the order of the calls.
class PackedWriter {
  public:
    PackedWriter(std::uint16_t columns, std::uint16_t rows, std::uint8_t version = 1);

    void raw(std::uint8_t id, std::span<const std::uint8_t> values,
             CountForm form = CountForm::Short);
    void uint16s(std::uint8_t id, std::span<const std::uint16_t> values,
                 CountForm form = CountForm::Short);
    void uint32s(std::uint8_t id, std::span<const std::uint32_t> values,
                 CountForm form = CountForm::Short);
    void int32s(std::uint8_t id, std::span<const std::int32_t> values,
                CountForm form = CountForm::Short);
    void floats(std::uint8_t id, std::span<const float> values, CountForm form = CountForm::Short);
    void packedUints(std::uint8_t id, std::span<const std::uint32_t> values, unsigned bits,
                     CountForm form = CountForm::Short);
    /// Quantised with the fixed point that spreads bits bits over the values' range.
    void packedFloats(std::uint8_t id, std::span<const float> values, unsigned bits,
                      CountForm form = CountForm::Short);
    /// Integers of a packed float block as they are, with the given scale and offset.
    void packedFixed(std::uint8_t id, std::span<const std::uint32_t> values, unsigned bits,
                     const FixedPoint& fixedPoint, CountForm form = CountForm::Short);
    /// Bytes as they are, for blocks that no writer should make.
    void bytes(std::span<const std::uint8_t> values);

    /// The calibration with its end marker.
    [[nodiscard]] Bytes finish() const;

  private:
    void header(std::uint8_t id, std::uint8_t kind, std::uint64_t count, CountForm form);

    std::uint64_t pixels_;
    Bytes out_;
};

// ---------------------------------------------------------------------------- the calibration --

struct Wiggling {
    float header = 0.0F;
    std::vector<float> third, first, second;  ///< equally long, 1 to 5 entries
};

struct Frequency {
    std::uint32_t id = 0;
    std::vector<float> pixelTable;
    std::array<float, 4> valuesA{};
    std::array<float, 4> valuesB{};
    std::optional<float> scalar;
    Wiggling wigglingA, wigglingB;
};

struct Straylight {
    float scale = 0.0F;
    std::array<float, 13> radius{};
    std::array<float, 13> value{};
    float exponent = 2.0F;
    float offset = 0.0F;
    float centre = 1.0F;
    std::uint32_t psfWidth = 0;
    std::uint32_t psfHeight = 0;
};

/// The content of a calibration in plain terms.
struct Calibration {
    std::uint16_t columns = 0;
    std::uint16_t rows = 0;
    std::uint8_t auxFlag = 1;
    std::array<float, 9> lens{};  ///< fx, fy, cx, cy, k1, k2, p1, p2, k3
    std::vector<std::uint32_t> mask;
    std::vector<float> pixelValues;
    std::optional<std::uint32_t> date;
    std::optional<std::string> text1, text2;
    std::optional<std::vector<std::uint8_t>> idBytes;
    std::optional<std::array<std::uint16_t, 2>> idCodes;
    std::optional<Straylight> straylight;
    std::vector<Frequency> frequencies;  ///< 1 to 8
    std::vector<std::vector<std::uint8_t>> custom;
};

/// What a made calibration should hold.
struct CalibrationOptions {
    std::uint16_t columns = CALCUT_SENSOR_COLUMNS;
    std::uint16_t rows = CALCUT_SENSOR_ROWS;
    unsigned frequencies = 3;  ///< 1 to 8
    bool straylight = true;    ///< left out all the same below 32 pixels, where no reader takes it
    unsigned custom = 2;       ///< custom blocks, 0 to 5
    float straylightExponent = 2.0F;
    std::uint64_t seed = 1;
};

/// A plausible module: dead pixels in the corners, smooth tables, a Brown-Conrady lens, a decaying
/// straylight profile. The same options give the same calibration on every machine.
Calibration makeCalibration(const CalibrationOptions& options);

/// How a calibration is put into blocks.
struct PackOptions {
    unsigned maskBits = 1;
    unsigned valueBits = 12;  ///< pixelValues and pixelTable: packed width, or 0 for plain floats
    CountForm form = CountForm::Short;
    std::set<std::uint8_t> omit{};  ///< block ids left out
};

/// The packed calibration, blocks in ascending order of id.
Bytes packCalibration(const Calibration& calibration, const PackOptions& options = {});

// --------------------------------------------------------------------------------- the images --

/// A v7 image around a payload.
Bytes makeV7Image(std::span<const std::uint8_t> payload);

struct KorvelineOptions {
    std::uint32_t address = 0x2068;  ///< EEPROM address of the payload; not inside the header
    /// Signature to put behind the payload (at most 127 bytes); none makes a record without area.
    std::optional<std::vector<std::uint8_t>> signature{};
};

/// A Korveline image around a packed calibration (at most 65,535 bytes with the signature area;
/// more throws std::length_error). Throws std::invalid_argument for an address below 0x2068.
Bytes makeKorvelineImage(std::span<const std::uint8_t> calibration,
                         const KorvelineOptions& options = {});

}  // namespace calcut::writer
