#include "cutter/v7Image.h"

#include <algorithm>

#include "cutter/CRC32.h"
#include "cutter/LittleEndian.h"

namespace calcut::image::v7 {

Record locate(Bytes image, std::uint64_t cursor) {
    Record record;
    const std::uint64_t left = image.size() - cursor;
    if (left < headerSize) {
        record.refusal = {corrupted, Cause::headerCutShort, image.size(), headerSize, left};
        return record;
    }
    const std::uint8_t* header = image.data() + cursor;
    record.hasHeader = true;
    record.blockId = littleEndian16(header + fields[fieldVersion].offset);
    record.payloadOffset = static_cast<std::int64_t>(cursor + headerSize);
    record.payloadLength = littleEndian32(header + fields[fieldLength].offset);
    record.payloadPresent = std::min(record.payloadLength, left - headerSize);
    record.storedCrc = littleEndian32(header + fields[fieldCrc].offset);
    record.refusal =
        refusalOfFormat(header, cursor, magic, fields[fieldVersion], version, record.blockId);
    if (record.refusal) {
        return record;
    }
    // The checksum comes before the bounds, over the bytes that are present: a truncated record is
    // refused as a bad checksum.
    record.computedCrc = crc32Of(header + headerSize, record.payloadPresent);
    const bool inside = record.payloadPresent == record.payloadLength;
    const bool matches = record.computedCrc == record.storedCrc;
    if (!inside) {
        record.refusal = {matches ? corrupted : checksumFailed, Cause::payloadOutside,
                          cursor + fields[fieldLength].offset, record.payloadLength,
                          record.payloadPresent};
    } else if (!matches) {
        record.refusal = {checksumFailed, Cause::checksum, cursor + fields[fieldCrc].offset,
                          *record.computedCrc, record.storedCrc};
    }
    record.next = cursor + headerSize + record.payloadLength;
    return record;
}

}  // namespace calcut::image::v7
