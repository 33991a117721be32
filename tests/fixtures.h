// What the tests of all rooms share.
#pragma once

#include <cstdint>
#include <filesystem>
#include <initializer_list>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "calcut/vantric_rx.h"
#include "calibration/owners.h"
#include "writer/writer.h"

namespace fixtures {

using Bytes = calcut::writer::Bytes;

inline constexpr std::uint32_t ok = VANTRIC_OK;
inline constexpr std::uint32_t notSupported = VANTRIC_ERR_NOT_SUPPORTED;
inline constexpr std::uint32_t endOfData = VANTRIC_ERR_END_OF_DATA;
inline constexpr std::uint32_t invalidArgument = VANTRIC_ERR_INVALID_ARGUMENT;
inline constexpr std::uint32_t valueUnset = VANTRIC_ERR_VALUE_UNSET;
inline constexpr std::uint32_t tooSmall = VANTRIC_ERR_BUFFER_TOO_SMALL;
inline constexpr std::uint32_t countTooSmall = VANTRIC_ERR_COUNT_TOO_SMALL;
inline constexpr std::uint32_t invalidData = VANTRIC_ERR_INVALID_DATA;
inline constexpr std::uint32_t fieldEmpty = VANTRIC_ERR_FIELD_EMPTY;
inline constexpr std::uint32_t alreadySet = VANTRIC_ERR_ALREADY_SET;

/// An empty directory that goes away with the object.
class TempDir {
  public:
    explicit TempDir(const std::filesystem::path& in = std::filesystem::temp_directory_path());
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

/// Returns once a process has come to rest: every thread of it waits for something, such as a pipe
/// that nobody writes to.
void waitUntilAtRest(int process);

/// Bytes of literals and texts: bytes("AB", 1, 2).
template <class... Parts>
Bytes bytes(const Parts&... parts) {
    Bytes out;
    const auto add = [&](const auto& part) {
        if constexpr (std::is_integral_v<std::decay_t<decltype(part)>>) {
            out.push_back(static_cast<std::uint8_t>(part));
        } else if constexpr (std::is_convertible_v<decltype(part), std::string_view>) {
            const std::string_view text = part;
            out.insert(out.end(), text.begin(), text.end());
        } else {
            out.insert(out.end(), part.begin(), part.end());
        }
    };
    (add(parts), ...);
    return out;
}

using Record = vantric::RecordOwner;

/// Reads with directions and PSF, or without; status receives the result.
Record read(const Bytes& calibration, std::uint32_t* status = nullptr, int withPsf = 1);
inline Record readPlain(const Bytes& calibration, std::uint32_t* status = nullptr) {
    return read(calibration, status, 0);
}

/// A small calibration with every kind of block: 8 x 4 pixels, two frequencies, straylight, texts,
/// two custom blocks.
calcut::writer::Calibration smallCalibration();
Bytes smallPacked();

/// The smallest calibration that reads (4 x 1 pixels, required blocks only), byte by byte.
Bytes minimalPacked();

/// The first size bytes, in a buffer of exactly that size.
Bytes prefix(const Bytes& bytes, std::size_t size);
/// With one bit changed.
Bytes flipped(Bytes bytes, std::size_t bit);
/// With other bytes from that offset on.
Bytes patched(Bytes bytes, std::size_t offset, const Bytes& with);

/// A v7 or Korveline image with the payload's checksum, made byte by byte.
Bytes v7Image(Bytes payload);
Bytes korvelineImage(Bytes payload, std::uint8_t type, std::uint32_t address = 0x2068);

/// Puts 32 bits, least significant byte first.
void putLittle32(Bytes& image, std::size_t offset, std::uint32_t value);

/// The first group of a POSIX extended pattern where it first matches (without groups, all of the
/// match), for which nothing as large as std::regex has to be compiled. Lines count as ends.
std::optional<std::string> firstMatch(const std::string& text, const std::string& pattern);

}  // namespace fixtures
