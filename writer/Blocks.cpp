#include "calcut/vantric_rx.h"
#include "writer/writer.h"

namespace calcut::writer {

namespace {

std::vector<float> straylightWords(const Straylight& straylight) {
    std::vector<float> words{straylight.scale};
    words.insert(words.end(), straylight.radius.begin(), straylight.radius.end());
    words.insert(words.end(), straylight.value.begin(), straylight.value.end());
    words.insert(words.end(), {straylight.exponent, straylight.offset, straylight.centre,
                               static_cast<float>(straylight.psfWidth),
                               static_cast<float>(straylight.psfHeight)});
    return words;
}

std::vector<float> wigglingWords(const Wiggling& wiggling) {
    std::vector<float> words{wiggling.header};
    words.insert(words.end(), wiggling.third.begin(), wiggling.third.end());
    words.insert(words.end(), wiggling.first.begin(), wiggling.first.end());
    words.insert(words.end(), wiggling.second.begin(), wiggling.second.end());
    return words;
}

// Writes blocks unless they are to be left out.
class Packer {
  public:
    Packer(const Calibration& calibration, const PackOptions& options)
        : out_(calibration.columns, calibration.rows), options_(options) {}

    void raw(std::uint8_t id, std::span<const std::uint8_t> values) {
        if (wanted(id)) {
            out_.raw(id, values, options_.form);
        }
    }
    void text(std::uint8_t id, const std::string& text) {
        raw(id, std::vector<std::uint8_t>(text.begin(), text.end()));
    }
    void uint16s(std::uint8_t id, std::span<const std::uint16_t> values) {
        if (wanted(id)) {
            out_.uint16s(id, values, options_.form);
        }
    }
    void uint32(std::uint8_t id, std::uint32_t value) {
        if (wanted(id)) {
            out_.uint32s(id, std::array{value}, options_.form);
        }
    }
    void floats(std::uint8_t id, std::span<const float> values) {
        if (wanted(id)) {
            out_.floats(id, values, options_.form);
        }
    }
    void mask(std::uint8_t id, std::span<const std::uint32_t> values) {
        if (wanted(id)) {
            out_.packedUints(id, values, options_.maskBits, options_.form);
        }
    }
    void table(std::uint8_t id, std::span<const float> values) {
        if (!wanted(id)) {
            return;
        }
        if (options_.valueBits == 0) {
            out_.floats(id, values, options_.form);
        } else {
            out_.packedFloats(id, values, options_.valueBits, options_.form);
        }
    }
    [[nodiscard]] Bytes finish() const { return out_.finish(); }

  private:
    [[nodiscard]] bool wanted(std::uint8_t id) const { return options_.omit.count(id) == 0; }

    PackedWriter out_;
    const PackOptions& options_;
};

void packFrequency(Packer& out, const Frequency& frequency, std::uint8_t firstId) {
    const auto id = [firstId](unsigned kind) { return static_cast<std::uint8_t>(firstId + kind); };
    out.uint32(id(0), frequency.id);
    out.table(id(1), frequency.pixelTable);
    out.floats(id(2), frequency.valuesA);
    out.floats(id(3), frequency.valuesB);
    if (frequency.scalar) {
        out.floats(id(4), std::array{*frequency.scalar});
    }
    out.floats(id(5), wigglingWords(frequency.wigglingA));
    out.floats(id(6), wigglingWords(frequency.wigglingB));
}

}  // namespace

Bytes packCalibration(const Calibration& calibration, const PackOptions& options) {
    Packer out(calibration, options);
    out.raw(RX_BLOCK_AUX_FLAG, std::array{calibration.auxFlag});
    out.floats(RX_BLOCK_LENS_PARAMETERS, calibration.lens);
    out.mask(RX_BLOCK_MASK, calibration.mask);
    out.table(RX_BLOCK_PIXEL_VALUES, calibration.pixelValues);
    if (calibration.date) {
        out.uint32(RX_BLOCK_DATE, *calibration.date);
    }
    if (calibration.text1) {
        out.text(RX_BLOCK_TEXT1, *calibration.text1);
    }
    if (calibration.text2) {
        out.text(RX_BLOCK_TEXT2, *calibration.text2);
    }
    if (calibration.idBytes) {
        out.raw(RX_BLOCK_ID_BYTES, *calibration.idBytes);
    }
    if (calibration.idCodes) {
        out.uint16s(RX_BLOCK_ID_CODES, *calibration.idCodes);
    }
    if (calibration.straylight) {
        out.floats(RX_BLOCK_STRAYLIGHT, straylightWords(*calibration.straylight));
    }
    std::uint8_t id = RX_BLOCK_FIRST_FREQUENCY;
    for (const Frequency& frequency : calibration.frequencies) {
        packFrequency(out, frequency, id);
        id = static_cast<std::uint8_t>(id + RX_BLOCKS_PER_FREQUENCY);
    }
    id = RX_BLOCK_FIRST_CUSTOM;
    for (const std::vector<std::uint8_t>& content : calibration.custom) {
        out.raw(id, content);
        ++id;
    }
    return out.finish();
}

}  // namespace calcut::writer
