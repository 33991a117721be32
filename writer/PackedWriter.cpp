#include <algorithm>
#include <cmath>
#include <limits>
#include <stdexcept>

#include "calibration/packed/Block.h"
#include "writer/writer.h"

namespace calcut::writer {

namespace {

constexpr std::uint64_t largestShortCount = vantric::longCountCode - 1;
constexpr std::uint64_t mostPerPixel = vantric::largestCountCode - vantric::perPixelFactorBase;

void putUint16(Bytes& out, std::uint16_t value) {
    out.push_back(static_cast<std::uint8_t>(value >> 8));
    out.push_back(static_cast<std::uint8_t>(value & 0xFF));
}

void putUint32(Bytes& out, std::uint32_t value) {
    putUint16(out, static_cast<std::uint16_t>(value >> 16));
    putUint16(out, static_cast<std::uint16_t>(value & 0xFFFF));
}

// Readers size packed blocks in single precision, which is not exact above 2^24 bits. Where that
// gives too many words the rest is zero; where it gives too few, no reader can take the block.
std::uint64_t wordsThatReadersTake(std::uint64_t values, unsigned bits) {
    return static_cast<std::uint64_t>(std::ceil(static_cast<float>(values * bits) * 0.03125F));
}

void putPacked(Bytes& out, std::span<const std::uint32_t> values, unsigned bits) {
    std::vector<std::uint32_t> words = packBits(values, bits);
    const std::uint64_t taken = wordsThatReadersTake(values.size(), bits);
    if (taken < words.size()) {
        throw std::length_error("a packed block of this size and width cannot be read back");
    }
    words.resize(taken);
    for (const std::uint32_t word : words) {
        putUint32(out, word);
    }
}

}  // namespace

PackedWriter::PackedWriter(std::uint16_t columns, std::uint16_t rows, std::uint8_t version)
    : pixels_(std::uint64_t{columns} * rows) {
    out_.assign(vantric::packedMagic.begin(), vantric::packedMagic.end());
    out_.push_back(version);
    putUint16(out_, columns);
    putUint16(out_, rows);
}

void PackedWriter::header(std::uint8_t id, std::uint8_t kind, std::uint64_t count, CountForm form) {
    if (count > std::numeric_limits<std::uint32_t>::max()) {
        throw std::length_error("a block holds at most 2^32 - 1 elements");
    }
    out_.push_back(id);
    out_.push_back(kind);
    if (form == CountForm::Short) {
        if (count == pixels_) {
            out_.push_back(vantric::perPixelCode);
            return;
        }
        for (std::uint64_t perPixel = 2; pixels_ > 0 && perPixel <= mostPerPixel; ++perPixel) {
            if (count == pixels_ * perPixel) {
                out_.push_back(static_cast<std::uint8_t>(vantric::perPixelFactorBase + perPixel));
                return;
            }
        }
        if (count >= 1 && count <= largestShortCount) {
            out_.push_back(static_cast<std::uint8_t>(count));
            return;
        }
    }
    out_.push_back(vantric::longCountCode);
    putUint32(out_, static_cast<std::uint32_t>(count));
}

void PackedWriter::raw(std::uint8_t id, std::span<const std::uint8_t> values, CountForm form) {
    header(id, RX_KIND_RAW, values.size(), form);
    bytes(values);
}

void PackedWriter::uint16s(std::uint8_t id, std::span<const std::uint16_t> values, CountForm form) {
    header(id, RX_KIND_UINT16, values.size(), form);
    for (const std::uint16_t value : values) {
        putUint16(out_, value);
    }
}

void PackedWriter::uint32s(std::uint8_t id, std::span<const std::uint32_t> values, CountForm form) {
    header(id, RX_KIND_UINT32, values.size(), form);
    for (const std::uint32_t value : values) {
        putUint32(out_, value);
    }
}

void PackedWriter::int32s(std::uint8_t id, std::span<const std::int32_t> values, CountForm form) {
    header(id, RX_KIND_INT32, values.size(), form);
    for (const std::int32_t value : values) {
        putUint32(out_, static_cast<std::uint32_t>(value));
    }
}

void PackedWriter::floats(std::uint8_t id, std::span<const float> values, CountForm form) {
    header(id, RX_KIND_FLOAT, values.size(), form);
    for (const float value : values) {
        putUint32(out_, encodeRXFloat(value));
    }
}

void PackedWriter::packedUints(std::uint8_t id, std::span<const std::uint32_t> values,
                               unsigned bits, CountForm form) {
    header(id, RX_KIND_PACKED_UINT, values.size(), form);
    out_.push_back(static_cast<std::uint8_t>(bits));
    putPacked(out_, values, bits);
}

void PackedWriter::packedFloats(std::uint8_t id, std::span<const float> values, unsigned bits,
                                CountForm form) {
    float low = 0.0F;
    float high = 0.0F;
    if (!values.empty()) {
        const auto [lowest, highest] = std::minmax_element(values.begin(), values.end());
        low = *lowest;
        high = *highest;
    }
    const FixedPoint fixedPoint = fixedPointFor(low, high, bits);
    std::vector<std::uint32_t> integers(values.size());
    std::transform(values.begin(), values.end(), integers.begin(),
                   [&](float value) { return quantise(value, fixedPoint, bits); });
    packedFixed(id, integers, bits, fixedPoint, form);
}

void PackedWriter::packedFixed(std::uint8_t id, std::span<const std::uint32_t> values,
                               unsigned bits, const FixedPoint& fixedPoint, CountForm form) {
    header(id, RX_KIND_PACKED_FLOAT, values.size(), form);
    out_.push_back(static_cast<std::uint8_t>(bits));
    putUint32(out_, encodeRXFloat(fixedPoint.scale));
    putUint32(out_, encodeRXFloat(fixedPoint.offset));
    putPacked(out_, values, bits);
}

void PackedWriter::bytes(std::span<const std::uint8_t> values) {
    out_.insert(out_.end(), values.begin(), values.end());
}

Bytes PackedWriter::finish() const {
    Bytes calibration = out_;
    calibration.push_back(VANTRIC_RX_END_MARKER);
    return calibration;
}

}  // namespace calcut::writer
