// What the tests of all rooms share.
#pragma once

#include <cstdint>
#include <filesystem>
#include <initializer_list>
#include <memory>
#include <string>
#include <vector>

#include "calcut/vantric_rx.h"
#include "writer/writer.h"

namespace fixtures {

using Bytes = calcut::writer::Bytes;

/// An empty directory that goes away with the object.
class TempDir {
  public:
    TempDir();
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;
    ~TempDir();
    [[nodiscard]] std::string path() const { return path_.string(); }
    [[nodiscard]] std::string operator/(const std::string& name) const {
        return (path_ / name).string();
    }
    /// Names of the files in it, sorted.
    [[nodiscard]] std::vector<std::string> names() const;

  private:
    std::filesystem::path path_;
};

void writeBytes(const std::string& path, const Bytes& bytes);
Bytes readBytes(const std::string& path);

/// Bytes of literals and texts: bytes("AB", 1, 2).
template <class... Parts>
Bytes bytes(const Parts&... parts) {
    Bytes out;
    const auto add = [&](const auto& part) {
        if constexpr (std::is_integral_v<std::decay_t<decltype(part)>>) {
            out.push_back(static_cast<std::uint8_t>(part));
        } else if constexpr (std::is_convertible_v<decltype(part), std::string>) {
            for (const char c : std::string(part)) {
                out.push_back(static_cast<std::uint8_t>(c));
            }
        } else {
            for (const auto byte : part) {
                out.push_back(static_cast<std::uint8_t>(byte));
            }
        }
    };
    (add(parts), ...);
    return out;
}

struct ReleaseRecord {
    void operator()(VantricCalibration* record) const { vantric_freeCalibration(record); }
};
using Record = std::unique_ptr<VantricCalibration, ReleaseRecord>;

/// Reads with directions and PSF; status receives the result.
Record read(const Bytes& calibration, std::uint32_t* status = nullptr);
/// Reads without them.
Record readPlain(const Bytes& calibration, std::uint32_t* status = nullptr);

/// A small calibration with every kind of block: 8 x 4 pixels, two frequencies, straylight, texts,
/// two custom blocks.
calcut::writer::Calibration smallCalibration();
Bytes smallPacked();

/// The smallest calibration that reads (4 x 1 pixels, required blocks only), byte by byte.
Bytes minimalPacked();

/// CRC-32 bit by bit, without a table.
std::uint32_t slowCrc32(const std::uint8_t* data, std::size_t size);

/// A v7 or Korveline image with the payload's checksum, made byte by byte.
Bytes v7Image(const Bytes& payload);
Bytes korvelineImage(const Bytes& payload, std::uint8_t type, std::uint32_t address = 0x2068);

/// Puts 32 bits, least significant byte first.
void putLittle32(Bytes& image, std::size_t offset, std::uint32_t value);

}  // namespace fixtures
