#include <algorithm>
#include <stdexcept>

#include "cutter/korvelineImage.h"
#include "cutter/v7Image.h"
#include "writer/writer.h"

namespace calcut::writer {

namespace {

// Bit by bit, so that it shares nothing with the library's table.
std::uint32_t crc32(std::span<const std::uint8_t> bytes) {
    std::uint32_t crc = 0xFFFFFFFF;
    for (const std::uint8_t byte : bytes) {
        crc ^= byte;
        for (int bit = 0; bit < 8; ++bit) {
            crc = (crc >> 1) ^ ((crc & 1) != 0 ? 0xEDB88320U : 0U);
        }
    }
    return ~crc;
}

void put(Bytes& out, const image::Field& field, std::uint32_t value) {
    for (std::size_t i = 0; i < field.size; ++i) {
        out[field.offset + i] = static_cast<std::uint8_t>((value >> (8 * i)) & 0xFF);
    }
}

// Erased EEPROM cells.
constexpr std::uint8_t erased = 0xFF;

// Some payload type without a signature area.
constexpr std::uint8_t unsignedType = 1;

}  // namespace

Bytes makeV7Image(std::span<const std::uint8_t> payload) {
    using namespace image::v7;
    if (payload.size() > 0xFFFFFFFFU) {
        throw std::length_error("a v7 payload is at most 2^32 - 1 bytes long");
    }
    Bytes out(headerSize + payload.size());
    std::copy(magic.begin(), magic.end(), out.begin());
    put(out, fields[fieldVersion], version);
    put(out, fields[fieldCrc], crc32(payload));
    put(out, fields[fieldLength], static_cast<std::uint32_t>(payload.size()));
    std::copy(payload.begin(), payload.end(), out.begin() + headerSize);
    return out;
}

Bytes makeKorvelineImage(std::span<const std::uint8_t> calibration,
                         const KorvelineOptions& options) {
    using namespace image::korveline;
    if (options.address < baseAddress + headerSize) {
        throw std::invalid_argument("the payload address lies inside the header");
    }
    Bytes payload(calibration.begin(), calibration.end());
    if (options.signature) {
        const std::vector<std::uint8_t>& signature = *options.signature;
        if (signature.size() > maxSignature) {
            throw std::length_error("a signature is at most 127 bytes long");
        }
        payload.push_back(static_cast<std::uint8_t>(signature.size()));
        payload.insert(payload.end(), signature.begin(), signature.end());
        payload.resize(calibration.size() + signatureArea);
    }
    if (payload.size() > maxPayload) {
        throw std::length_error("a Korveline payload is at most 65535 bytes long");
    }

    const std::size_t payloadOffset = options.address - baseAddress;
    Bytes out(payloadOffset + payload.size(), erased);
    std::fill_n(out.begin(), headerSize, std::uint8_t{0});
    std::copy(magic.begin(), magic.end(), out.begin());
    put(out, fields[fieldRevision], revision);
    put(out, fields[fieldType], options.signature ? signedTypes.front() : unsignedType);
    put(out, fields[fieldAddress], options.address);
    put(out, fields[fieldLength], static_cast<std::uint32_t>(payload.size()));
    put(out, fields[fieldCrc], crc32(payload));
    std::copy(payload.begin(), payload.end(),
              out.begin() + static_cast<std::ptrdiff_t>(payloadOffset));
    return out;
}

}  // namespace calcut::writer
