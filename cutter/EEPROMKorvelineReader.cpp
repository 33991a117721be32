#include "cutter/EEPROMKorvelineReader.h"

#include <algorithm>
#include <cstddef>
#include <cstring>

#include "cutter/CRC32.h"
#include "cutter/LittleEndian.h"

/// The file header in memory. Only magic, revision, the last byte of span26 and the payload fields
/// are looked at; the meaning of the rest is unknown, it is kept as found.
struct KorvelineHeader {
    char magic[9];
    std::uint32_t revision;
    std::uint32_t field9;
    std::uint8_t span16[6];
    std::uint8_t span22[4];
    std::uint8_t span26[16];
    std::uint8_t span42[4];
    std::uint8_t span46[6];
    std::uint32_t payloadAddress;
    std::uint32_t payloadLength;
    std::uint32_t payloadCrc;
    std::uint8_t span62[1];
    std::uint8_t span63[6];
    std::uint8_t span69[19];
    std::uint8_t unused[10];
};
static_assert(sizeof(KorvelineHeader) == 104);

namespace {

//  0         9       13       16     22     26      41   42     46     52      56     58   62 .. 88
//  +---------+-------+--------+------+------+-------+----+------+------+-------+------+-----+--+----+
//  |KORVELINE| u32   |revision| span | span | span  |type| span | span |address|length| CRC |..| |
//  +---------+-------+--------+------+------+-------+----+------+------+-------+------+-----+--+----+
// 104 bytes in all; the payload lies where its EEPROM address says.
constexpr char magic[] = {'K', 'O', 'R', 'V', 'E', 'L', 'I', 'N', 'E'};
constexpr std::size_t field9Offset = sizeof magic;
constexpr std::size_t revisionOffset = field9Offset + 4;
constexpr std::size_t span16Offset = revisionOffset + 3;
constexpr std::size_t span22Offset = span16Offset + 6;
constexpr std::size_t span26Offset = span22Offset + 4;
constexpr std::size_t span42Offset = span26Offset + 16;
constexpr std::size_t span46Offset = span42Offset + 4;
constexpr std::size_t addressOffset = span46Offset + 6;
constexpr std::size_t lengthOffset = addressOffset + 4;
constexpr std::size_t crcOffset = lengthOffset + 2;
constexpr std::size_t span62Offset = crcOffset + 4;
constexpr std::size_t span63Offset = span62Offset + 1;
constexpr std::size_t span69Offset = span63Offset + 6;
constexpr std::size_t unreadOffset = span69Offset + 19;
constexpr std::size_t headerSize = unreadOffset + 16;
static_assert(span42Offset == 42 && addressOffset == 52 && unreadOffset == 88 && headerSize == 104);

constexpr std::uint32_t supportedRevision = 327;
constexpr std::int64_t imageBaseAddress = 0x2000;

constexpr std::uint8_t signedTypes[] = {22, 28};
constexpr std::uint16_t plainBlockId = 7;
constexpr std::uint16_t signedBlockId = 37;

template <std::size_t N>
void copySpan(std::uint8_t (&to)[N], const std::uint8_t* from) {
    std::memcpy(to, from, N);
}

void readHeader(const std::uint8_t* image, KorvelineHeader& header) {
    std::memcpy(header.magic, image, sizeof header.magic);
    header.revision = littleEndian24(image + revisionOffset);
    header.field9 = littleEndian32(image + field9Offset);
    copySpan(header.span16, image + span16Offset);
    copySpan(header.span22, image + span22Offset);
    copySpan(header.span26, image + span26Offset);
    copySpan(header.span42, image + span42Offset);
    copySpan(header.span46, image + span46Offset);
    header.payloadAddress = littleEndian32(image + addressOffset);
    header.payloadLength = littleEndian16(image + lengthOffset);
    header.payloadCrc = littleEndian32(image + crcOffset);
    copySpan(header.span62, image + span62Offset);
    copySpan(header.span63, image + span63Offset);
    copySpan(header.span69, image + span69Offset);
}

bool hasSignature(const KorvelineHeader& header) {
    const std::uint8_t type = header.span26[sizeof header.span26 - 1];
    return std::find(std::begin(signedTypes), std::end(signedTypes), type) != std::end(signedTypes);
}

}  // namespace

// Not zero-filled: every field is written before it is read.
EEPROMKorvelineReader::EEPROMKorvelineReader() : header_(new KorvelineHeader) {}

EEPROMKorvelineReader::~EEPROMKorvelineReader() = default;

DataBlock EEPROMKorvelineReader::getDataBlock(unsigned short /*id*/) {
    throw false;
}

bool EEPROMKorvelineReader::hasMoreBlocks() {
    throw false;
}

DataBlock EEPROMKorvelineReader::getNextDataBlock() {
    const auto size = static_cast<std::int64_t>(data_.size());
    const std::int64_t position = cursor_ == nullptr ? size : cursor_ - data_.data();
    if (position + static_cast<std::int64_t>(headerSize) > size) {
        refuse("File is corrupted");
    }
    readHeader(data_.data(), *header_);
    if (header_->revision != supportedRevision ||
        std::memcmp(header_->magic, magic, sizeof magic) != 0) {
        refuse("Invalid file format");
    }

    const std::int64_t length = header_->payloadLength;
    const std::int64_t begin = position + header_->payloadAddress - imageBaseAddress;
    const std::int64_t end = begin + length;
    // The checksum comes before the range: bytes outside the image cannot match.
    const bool outside = begin < 0 || end > size;
    const bool crcMatches =
        length == 0
            ? header_->payloadCrc == 0
            : !outside && calc_crc32(data_.data() + begin, static_cast<unsigned long>(length)) ==
                              header_->payloadCrc;
    if (!crcMatches) {
        refuse("CRC32 failed (file)");
    }
    if (end > size) {
        refuse("File is corrupted");
    }

    // A payload that overlaps the header would put the cursor behind the end.
    cursor_ =
        data_.data() + std::min(size, position + static_cast<std::int64_t>(headerSize) + length);
    DataBlock block{hasSignature(*header_) ? signedBlockId : plainBlockId, {}};
    if (length != 0) {
        block.data.assign(data_.begin() + begin, data_.begin() + end);
    }
    return block;
}
