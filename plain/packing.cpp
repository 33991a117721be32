#include <cmath>
#include <cstring>

#include "plain/plain.h"

namespace calcut::plain {

namespace {

std::uint32_t bigEndian(const std::uint8_t* src, unsigned size) {
    std::uint32_t value = 0;
    for (unsigned i = 0; i < size; ++i) {
        value = (value << 8) | src[i];
    }
    return value;
}

// Element after element at the cursor, each in size bytes.
template <class T, class Convert>
void convertElements(VantricStream& stream, std::uint64_t count, unsigned size,
                     std::uint8_t* target, Convert convert) {
    for (std::uint64_t i = 0; i < count; ++i) {
        const T value = convert(bigEndian(stream.data + stream.position, size));
        std::memcpy(target, &value, sizeof value);
        stream.position += size;
        target += size;
    }
}

}  // namespace

float decodeFloat(std::int32_t word) {
    const float sign = word > 0 ? 1.0F : word < 0 ? -1.0F : 0.0F;
    const auto bits = static_cast<std::uint32_t>(word);
    const std::uint32_t a = word < 0 ? 0U - bits : bits;
    const float mantissa = (static_cast<float>(a & 0x7FFFFFU) + 8388608.0F) * 5.9604645e-8F;
    const int exponent = static_cast<int>(a >> 23) - 127;
    if (exponent >= 128) {
        return sign * mantissa * std::exp2(static_cast<float>(exponent - 1)) * 2.0F;
    }
    return sign * mantissa * std::ldexp(1.0F, exponent);
}

float decodeFixedPoint(std::uint32_t value, float scale, float offset) {
    return offset + scale * static_cast<float>(value);
}

std::uint32_t unpackUint(const std::uint32_t* words, std::uint64_t wordCount,
                         std::uint64_t valueCount, unsigned bits, std::uint32_t* out) {
    const std::uint32_t mask = (1U << bits) - 1;
    unsigned p = 0;
    std::uint64_t k = 0;
    for (std::uint64_t i = 0; i < wordCount && k < valueCount; ++i) {
        const std::uint32_t word = words[i];
        while (32 - p >= bits && k < valueCount) {
            out[k] = (word >> p) & mask;
            p += bits;
            ++k;
        }
        const unsigned r = 32 - p;
        p = 0;
        if (k < valueCount && r > 0 && i + 1 < wordCount) {
            const std::uint32_t low = (word >> (32 - r)) & ((1U << r) - 1);
            out[k] = low + ((words[i + 1] << r) & mask);
            p = bits - r;
            ++k;
        }
    }
    return k == valueCount ? VANTRIC_OK : VANTRIC_ERR_END_OF_DATA;
}

std::uint32_t unpackFloat(const std::uint32_t* words, std::uint64_t wordCount,
                          std::uint64_t valueCount, unsigned bits, std::uint32_t* scratch,
                          float* out, float scale, float offset) {
    const std::uint32_t status = unpackUint(words, wordCount, valueCount, bits, scratch);
    if (status == VANTRIC_OK) {
        for (std::uint64_t i = 0; i < valueCount; ++i) {
            out[i] = decodeFixedPoint(scratch[i], scale, offset);
        }
    }
    return status;
}

std::uint32_t decodeBlock(VantricStream& stream, const RXBlockHeader& block, std::uint8_t* scratch,
                          std::uint64_t scratchSize, std::uint8_t* dest, std::uint64_t destSize) {
    const bool packed = block.kind == RX_KIND_PACKED_UINT || block.kind == RX_KIND_PACKED_FLOAT;
    const std::uint64_t unpackedSize = vantric_getRXUnpackedBlockSize(&block);
    const std::uint64_t packedSize = vantric_getRXPackedBlockSize(&block);
    if (unpackedSize > destSize || (packed && packedSize + unpackedSize > scratchSize)) {
        return VANTRIC_ERR_BUFFER_TOO_SMALL;
    }
    if (stream.position + packedSize > stream.size) {
        return VANTRIC_ERR_END_OF_DATA;
    }
    const auto asIs = [](std::uint32_t value) { return value; };
    const std::uint64_t wordCount = packedSize / 4;
    switch (block.kind) {
        case RX_KIND_RAW:
            convertElements<std::uint8_t>(stream, block.count, 1, dest, [](std::uint32_t value) {
                return static_cast<std::uint8_t>(value);
            });
            return VANTRIC_OK;
        case RX_KIND_UINT16:
            convertElements<std::uint16_t>(stream, block.count, 2, dest, [](std::uint32_t value) {
                return static_cast<std::uint16_t>(value);
            });
            return VANTRIC_OK;
        case RX_KIND_UINT32:
        case RX_KIND_INT32:
            convertElements<std::uint32_t>(stream, block.count, 4, dest, asIs);
            return VANTRIC_OK;
        case RX_KIND_FLOAT:
            convertElements<float>(stream, block.count, 4, dest, [](std::uint32_t value) {
                return decodeFloat(static_cast<std::int32_t>(value));
            });
            return VANTRIC_OK;
        case RX_KIND_PACKED_UINT:
        case RX_KIND_PACKED_FLOAT:
            convertElements<std::uint32_t>(stream, wordCount, 4, scratch, asIs);
            break;
        default:
            stream.position += packedSize;
            return VANTRIC_ERR_ALREADY_SET;
    }
    if (block.bits < 1 || block.bits > 31) {
        return VANTRIC_ERR_INVALID_DATA;
    }
    auto* words = reinterpret_cast<std::uint32_t*>(scratch);
    return block.kind == RX_KIND_PACKED_UINT
               ? unpackUint(words, wordCount, block.count, block.bits,
                            reinterpret_cast<std::uint32_t*>(dest))
               : unpackFloat(words, wordCount, block.count, block.bits, words + wordCount,
                             reinterpret_cast<float*>(dest), block.scale, block.offset);
}

}  // namespace calcut::plain
