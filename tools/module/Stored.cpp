#include "tools/module/Stored.h"

#include <algorithm>
#include <bit>
#include <limits>
#include <memory>
#include <span>

#include <fmt/format.h>

#include "calibration/packed/Block.h"

namespace calcut::module {

std::vector<ImageField> imageFieldsOf(const Diagnosis& about) {
    std::vector<ImageField> fields;
    for (const image::Field& field : about.layout.image->fields) {
        if (field.offset >= about.file.size()) {
            continue;
        }
        const files::ByteView bytes = about.file.subspan(
            field.offset, std::min(field.size, about.file.size() - field.offset));
        const image::Format format =
            bytes.size() == field.size ? field.format : image::Format::bytes;
        std::uint64_t number = 0;
        for (std::size_t i = bytes.size(); i-- > 0;) {
            number = number << 8 | bytes[i];
        }
        const bool isText = format == image::Format::text, isBytes = format == image::Format::bytes;
        fields.push_back({field, bytes, isText || isBytes ? std::nullopt : std::optional(number),
                          isText    ? quotedBytes(bytes)
                          : isBytes ? fmt::format("{:02x}", fmt::join(bytes, " "))
                          : format == image::Format::decimal
                              ? fmt::to_string(number)
                              : fmt::format("0x{:0{}x}", number, 2 * field.size)});
    }
    return fields;
}

std::optional<files::ByteView> signatureOf(const Diagnosis& about) {
    if (!about.signatureLength) {
        return std::nullopt;
    }
    const files::ByteView room = about.payload.last(about.signatureAreaSize).subspan(1);
    return room.first(*about.signatureLength <= room.size() ? *about.signatureLength : 0);
}

// --------------------------------------------------------------------------------------- ranges --

namespace {

/// Floats in their order as integers, and back: a compiler has vector instructions for these.
std::int32_t ordered(std::int32_t bits) {
    return bits ^ (bits >> 31 & std::numeric_limits<std::int32_t>::max());
}

template <class Number>
Range rangeOf(std::span<const Number> values) {
    const auto [low, high] = std::minmax_element(values.begin(), values.end());
    return {*low, *high};
}

Range rangeOf(std::span<const float> values) {
    constexpr std::int32_t lowest = std::numeric_limits<std::int32_t>::min();
    constexpr std::int32_t highest = std::numeric_limits<std::int32_t>::max();
    constexpr auto infinity = std::bit_cast<std::int32_t>(std::numeric_limits<float>::infinity());
    std::int32_t low = highest, high = lowest;
    std::uint32_t infinite = 0;
    for (const float value : values) {
        const auto bits = std::bit_cast<std::int32_t>(value);
        const std::int32_t finite = -std::int32_t{(bits & highest) < infinity};  // as a mask
        const std::int32_t key = ordered(bits) & finite;
        low = std::min(low, key | (highest & ~finite));
        high = std::max(high, key | (lowest & ~finite));
        infinite += static_cast<std::uint32_t>(finite + 1);
    }
    return infinite == values.size() ? Range{{}, {}, infinite}
                                     : Range{std::bit_cast<float>(ordered(low)),
                                             std::bit_cast<float>(ordered(high)), infinite};
}

template <class Stored>
std::optional<Range> decodedRange(VantricStream& stream, const RXBlockHeader& block,
                                  std::uint64_t size) {
    // The size of the scratch is asked for, its content is not used.
    constexpr std::uint64_t anyScratch = std::numeric_limits<std::uint64_t>::max();
    const auto values = std::make_unique_for_overwrite<Stored[]>(size / sizeof(Stored));
    auto* const bytes = reinterpret_cast<std::uint8_t*>(values.get());
    if (vantric::decodeBlock(stream, block, anyScratch, bytes, size).refused()) {
        return std::nullopt;
    }
    return rangeOf(std::span<const Stored>(values.get(), size / sizeof(Stored)));
}

std::optional<Range> rangeOf(const Diagnosis& about, const vantric::BlockSighting& sighting) {
    // The largest per-pixel table of a 65-megapixel sensor fits; only a file made to exhaust memory
    // does not.
    constexpr std::uint64_t maxDecodedBytes = std::uint64_t{1} << 28;
    const RXBlockHeader& block = sighting.header;
    const std::uint64_t size = vantric_getRXUnpackedBlockSize(&block);
    if (size == 0 || size > maxDecodedBytes || sighting.payloadSize > about.payload.size()) {
        return std::nullopt;
    }
    VantricStream stream = vantric_createStreamFromData(about.payload.data(), about.payload.size());
    stream.position = sighting.payloadOffset - about.payloadOffset;
    switch (block.kind) {
        case RX_KIND_RAW:
            return decodedRange<std::uint8_t>(stream, block, size);
        case RX_KIND_UINT16:
            return decodedRange<std::uint16_t>(stream, block, size);
        case RX_KIND_INT32:
            return decodedRange<std::int32_t>(stream, block, size);
        case RX_KIND_FLOAT:
        case RX_KIND_PACKED_FLOAT:
            return decodedRange<float>(stream, block, size);
        default:
            return decodedRange<std::uint32_t>(stream, block, size);
    }
}

}  // namespace

std::vector<std::optional<Range>> rangesOf(const Diagnosis& about) {
    // Unknown blocks may lie over each other, so that a small file could ask for hours.
    constexpr std::uint64_t mostDecodedBytes = std::uint64_t{1} << 31;
    std::uint64_t decodedBytes = 0;
    std::vector<std::optional<Range>> ranges;
    for (const vantric::BlockSighting& block : about.blocks) {
        decodedBytes += vantric_getRXUnpackedBlockSize(&block.header);
        ranges.push_back(decodedBytes > mostDecodedBytes ? std::nullopt : rangeOf(about, block));
    }
    return ranges;
}

}  // namespace calcut::module
