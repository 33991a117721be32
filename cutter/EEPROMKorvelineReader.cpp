#include "cutter/EEPROMKorvelineReader.h"

#include <cstddef>
#include <cstring>

#include "cutter/korvelineImage.h"
#include "cutter/LittleEndian.h"

/// The file header in memory. Nothing in the library reads it back: the checks work on the dump.
/// It is there because it belongs to the exported class, whose size hosts have compiled in, and
/// because it is what a debugger shows of the last dump that was looked at. The meaning of the
/// spans is unknown; they are kept as found.
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

using namespace calcut::image::korveline;

template <std::size_t N>
void copySpan(std::uint8_t (&to)[N], const std::uint8_t* from) {
    std::memcpy(to, from, N);
}

void readHeader(const std::uint8_t* image, KorvelineHeader& header) {
    std::memcpy(header.magic, image, sizeof header.magic);
    header.revision = littleEndian24(image + fields[fieldRevision].offset);
    header.field9 = littleEndian32(image + fields[field9].offset);
    copySpan(header.span16, image + fields[field16].offset);
    copySpan(header.span22, image + fields[field22].offset);
    copySpan(header.span26, image + fields[field26].offset);
    copySpan(header.span42, image + fields[field42].offset);
    copySpan(header.span46, image + fields[field46].offset);
    header.payloadAddress = littleEndian32(image + fields[fieldAddress].offset);
    header.payloadLength = littleEndian16(image + fields[fieldLength].offset);
    header.payloadCrc = littleEndian32(image + fields[fieldCrc].offset);
    copySpan(header.span62, image + fields[field62].offset);
    copySpan(header.span63, image + fields[field63].offset);
    copySpan(header.span69, image + fields[field69].offset);
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
    const calcut::image::Record record = locate(data_, cursor());
    if (record.hasHeader) {
        readHeader(data_.data(), *header_);
    }
    return take(record);
}
