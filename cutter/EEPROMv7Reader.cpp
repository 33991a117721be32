#include "cutter/EEPROMv7Reader.h"

#include <algorithm>
#include <cstddef>
#include <cstring>

#include "cutter/CRC32.h"
#include "cutter/LittleEndian.h"

namespace {

//  0       6      8      12      16                 67
//  +-------+------+------+-------+------------------+---------+
//  |QOVRIN | ver. | CRC  | length| not examined     | payload |
//  +-------+------+------+-------+------------------+---------+
constexpr char magic[] = {'Q', 'O', 'V', 'R', 'I', 'N'};
constexpr std::size_t versionOffset = sizeof magic;
constexpr std::size_t crcOffset = versionOffset + 2;
constexpr std::size_t lengthOffset = crcOffset + 4;
constexpr std::size_t unexaminedOffset = lengthOffset + 4;
constexpr std::size_t headerSize = unexaminedOffset + 51;
static_assert(headerSize == 67);

constexpr std::uint16_t supportedVersion = 7;

}  // namespace

EEPROMv7Reader::EEPROMv7Reader() = default;

EEPROMv7Reader::~EEPROMv7Reader() = default;

DataBlock EEPROMv7Reader::getDataBlock(unsigned short /*id*/) {
    throw false;
}

bool EEPROMv7Reader::hasMoreBlocks() {
    throw false;
}

DataBlock EEPROMv7Reader::getNextDataBlock() {
    const auto left = static_cast<std::size_t>(data_.data() + data_.size() - cursor_);
    if (cursor_ == nullptr || left < headerSize) {
        refuse("File is corrupted");
    }
    const std::uint16_t version = littleEndian16(cursor_ + versionOffset);
    if (version != supportedVersion || std::memcmp(cursor_, magic, sizeof magic) != 0) {
        refuse("Invalid file format");
    }

    const std::size_t length = littleEndian32(cursor_ + lengthOffset);
    std::uint8_t* payload = data_.data() + (cursor_ - data_.data()) + headerSize;
    // The checksum comes before the bounds: a truncated record is reported as a bad checksum.
    const std::size_t present = std::min(length, left - headerSize);
    if (calc_crc32(payload, present) != littleEndian32(cursor_ + crcOffset)) {
        refuse("CRC32 failed (file)");
    }
    if (present < length) {
        refuse("File is corrupted");
    }

    cursor_ = payload + length;
    return DataBlock{version, ByteBuffer(payload, payload + length)};
}
