#include <algorithm>
#include <stdexcept>

#include "writer/ImageLayout.h"
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

void putLittleEndian(Bytes& out, std::size_t offset, std::size_t size, std::uint32_t value) {
    for (std::size_t i = 0; i < size; ++i) {
        out[offset + i] = static_cast<std::uint8_t>((value >> (8 * i)) & 0xFF);
    }
}

// Erased EEPROM cells.
constexpr std::uint8_t erased = 0xFF;

// Some payload type without a signature area.
constexpr std::uint8_t unsignedType = 1;

}  // namespace

Bytes makeV7Image(std::span<const std::uint8_t> payload) {
    namespace layout = image::v7;
    if (payload.size() > 0xFFFFFFFFU) {
        throw std::length_error("a v7 payload is at most 2^32 - 1 bytes long");
    }
    Bytes out(layout::headerSize + payload.size());
    std::copy(layout::magic.begin(), layout::magic.end(), out.begin());
    putLittleEndian(out, layout::versionOffset, 2, layout::version);
    putLittleEndian(out, layout::crcOffset, 4, crc32(payload));
    putLittleEndian(out, layout::lengthOffset, 4, static_cast<std::uint32_t>(payload.size()));
    std::copy(payload.begin(), payload.end(), out.begin() + layout::headerSize);
    return out;
}

Bytes makeKorvelineImage(std::span<const std::uint8_t> calibration,
                         const KorvelineOptions& options) {
    namespace layout = image::korveline;
    if (options.address < layout::baseAddress + layout::headerSize) {
        throw std::invalid_argument("the payload address lies inside the header");
    }
    Bytes payload(calibration.begin(), calibration.end());
    if (options.signature) {
        const std::vector<std::uint8_t>& signature = *options.signature;
        if (signature.size() > layout::maxSignature) {
            throw std::length_error("a signature is at most 127 bytes long");
        }
        payload.push_back(static_cast<std::uint8_t>(signature.size()));
        payload.insert(payload.end(), signature.begin(), signature.end());
        payload.resize(calibration.size() + layout::signatureArea);
    }
    if (payload.size() > layout::maxPayload) {
        throw std::length_error("a Korveline payload is at most 65535 bytes long");
    }

    const std::size_t payloadOffset = options.address - layout::baseAddress;
    Bytes out(payloadOffset + payload.size(), erased);
    std::fill_n(out.begin(), layout::headerSize, std::uint8_t{0});
    std::copy(layout::magic.begin(), layout::magic.end(), out.begin());
    putLittleEndian(out, layout::revisionOffset, 3, layout::revision);
    out[layout::typeOffset] = options.signature ? layout::signedTypeA : unsignedType;
    putLittleEndian(out, layout::addressOffset, 4, options.address);
    putLittleEndian(out, layout::lengthOffset, 2, static_cast<std::uint32_t>(payload.size()));
    putLittleEndian(out, layout::crcOffset, 4, crc32(payload));
    std::copy(payload.begin(), payload.end(),
              out.begin() + static_cast<std::ptrdiff_t>(payloadOffset));
    return out;
}

}  // namespace calcut::writer
