#include "cutter/korvelineImage.h"

#include <algorithm>

#include "cutter/CRC32.h"
#include "cutter/LittleEndian.h"

namespace calcut::image::korveline {

namespace {

std::uint16_t blockIdOf(std::uint8_t type) {
    const bool isSigned =
        std::find(signedTypes.begin(), signedTypes.end(), type) != signedTypes.end();
    return isSigned ? signedBlockId : plainBlockId;
}

}  // namespace

Record locate(Bytes image, std::uint64_t cursor) {
    Record record;
    const std::uint64_t left = image.size() - cursor;
    if (left < headerSize) {
        record.refusal = {corrupted, Cause::headerCutShort, image.size(), headerSize, left};
        return record;
    }
    const std::uint8_t* header = image.data();
    const auto size = static_cast<std::int64_t>(image.size());
    const auto position = static_cast<std::int64_t>(cursor);
    record.hasHeader = true;
    record.blockId = blockIdOf(header[fields[fieldType].offset]);
    record.payloadLength = littleEndian16(header + fields[fieldLength].offset);
    record.payloadOffset = position +
                           std::int64_t{littleEndian32(header + fields[fieldAddress].offset)} -
                           std::int64_t{baseAddress};
    const std::int64_t begin = record.payloadOffset;
    const std::int64_t end = begin + static_cast<std::int64_t>(record.payloadLength);
    record.payloadPresent = static_cast<std::uint64_t>(
        std::max<std::int64_t>(0, std::min(end, size) - std::clamp<std::int64_t>(begin, 0, size)));
    record.storedCrc = littleEndian32(header + fields[fieldCrc].offset);
    record.refusal = refusalOfFormat(header, 0, magic, fields[fieldRevision], revision,
                                     littleEndian24(header + fields[fieldRevision].offset));
    if (record.refusal) {
        return record;
    }
    // The checksum comes before the range. Bytes outside the image cannot match, none at all can.
    const bool inside = record.payloadPresent == record.payloadLength;
    if (inside) {
        record.computedCrc =
            record.payloadLength == 0 ? 0 : crc32Of(image.data() + begin, record.payloadLength);
    }
    const bool matches = record.computedCrc == record.storedCrc;
    if (!inside || (matches && end > size)) {
        record.refusal = {matches ? corrupted : checksumFailed, Cause::payloadOutside,
                          fields[fieldAddress].offset, record.payloadLength, record.payloadPresent};
    } else if (!matches) {
        record.refusal = {checksumFailed, Cause::checksum, fields[fieldCrc].offset,
                          *record.computedCrc, record.storedCrc};
    }
    // A payload that overlaps the header would put the cursor behind the end.
    record.next = std::min<std::uint64_t>(image.size(), cursor + headerSize + record.payloadLength);
    return record;
}

}  // namespace calcut::image::korveline
