#pragma once

// The cursor of the packed format: its one bounds check, and the reader of fields on top of it.
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "calcut/vantric_rx.h"
#include "calibration/packed/Uncompressed.h"

namespace vantric {

/// Bytes from the cursor to the end. The cursor may stand behind the end.
inline std::uint64_t bytesLeft(const VantricStream& stream) {
    return stream.position <= stream.size ? stream.size - stream.position : 0;
}

/// The one bounds check: whether count bytes lie between the cursor and the end.
inline bool canRead(const VantricStream& stream, std::uint64_t count) {
    // Compares with a difference, because a sum could wrap.
    return stream.position <= stream.size && count <= stream.size - stream.position;
}

/// Reads fields at the cursor. Every read checks and advances in one step: it returns true and the
/// cursor stands behind the fields, or false and nothing has changed.
class FieldReader {
  public:
    explicit FieldReader(VantricStream& stream) : stream_(stream) {}

    /// Big-endian integers, RX floats and arrays of characters, one behind the other.
    template <class... Fields>
    [[nodiscard]] bool read(Fields&... fields) {
        const std::uint8_t* bytes = nullptr;
        if (!take((sizeof fields + ...), bytes)) {
            return false;
        }
        ((decode(bytes, fields), bytes += sizeof fields), ...);
        return true;
    }

    /// count bytes in place.
    [[nodiscard]] bool take(std::uint64_t count, const std::uint8_t*& bytes) {
        if (!canRead(stream_, count)) {
            return false;
        }
        bytes = stream_.data + stream_.position;
        stream_.position += count;
        return true;
    }

    /// Moves the cursor over count bytes, also past the end; false in that case.
    [[nodiscard]] bool skip(std::uint64_t count) {
        const bool inside = canRead(stream_, count);
        stream_.position += count;
        return inside;
    }

  private:
    static void decode(const std::uint8_t* bytes, std::uint8_t& field) { field = *bytes; }
    static void decode(const std::uint8_t* bytes, std::uint16_t& field) {
        field = bigEndian16(bytes);
    }
    static void decode(const std::uint8_t* bytes, std::uint32_t& field) {
        field = bigEndian32(bytes);
    }
    static void decode(const std::uint8_t* bytes, float& field) {
        field = vantric_decodeRXFloat(static_cast<std::int32_t>(bigEndian32(bytes)));
    }
    template <std::size_t size>
    static void decode(const std::uint8_t* bytes, std::array<char, size>& field) {
        std::memcpy(field.data(), bytes, size);
    }

    VantricStream& stream_;
};

}  // namespace vantric
