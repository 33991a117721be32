#include "CalibrationReport.h"

#include <fmt/format.h>
#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <utility>

#include "StatusNames.h"

namespace calcut::tools {

namespace {

/// Pixels whose mask a cut counts (224 x 172, see EEPROMMetaInformation).
constexpr std::uint64_t cutMaskPixels = 38528;

/// Blocks that decode to more than this are listed without a value range. The largest per-pixel
/// table of a 65-megapixel sensor fits; only a file made to exhaust memory does not.
constexpr std::uint64_t maxDecodedBytes = std::uint64_t{1} << 28;

// ---------------------------------------------------------------------------------- value range --

template <typename Value>
ValueRange rangeOf(const std::vector<std::uint8_t>& decoded) {
    ValueRange range;
    range.whole = !std::is_floating_point_v<Value>;
    range.low = std::numeric_limits<double>::infinity();
    range.high = -range.low;
    for (std::size_t at = 0; at + sizeof(Value) <= decoded.size(); at += sizeof(Value)) {
        Value value{};
        std::memcpy(&value, decoded.data() + at, sizeof value);
        const auto wide = static_cast<double>(value);
        if (!std::isfinite(wide)) {
            ++range.notFinite;
            continue;
        }
        ++range.finite;
        range.low = std::min(range.low, wide);
        range.high = std::max(range.high, wide);
    }
    return range;
}

std::optional<ValueRange> decodeRange(ByteView calibration, const BlockPosition& block) {
    const bool packed =
        block.header.kind == RX_KIND_PACKED_UINT || block.header.kind == RX_KIND_PACKED_FLOAT;
    if (block.header.count == 0 || block.payloadOffset > calibration.size() ||
        block.packedSize > calibration.size() - block.payloadOffset ||
        (packed && (block.header.bits < 1 || block.header.bits > 31))) {
        return std::nullopt;
    }
    const std::uint64_t decodedSize = vantric_getRXUnpackedBlockSize(&block.header);
    if (decodedSize > maxDecodedBytes) {
        return std::nullopt;
    }
    std::vector<std::uint8_t> decoded(decodedSize);
    std::vector<std::uint8_t> scratch(packed ? decodedSize + block.packedSize : 0);
    VantricStream stream = vantric_createStreamFromData(calibration.data(), calibration.size());
    stream.position = block.payloadOffset;
    if (vantric_decodeRXBlock(&stream, &block.header, scratch.data(), scratch.size(),
                              decoded.data(), decoded.size()) != VANTRIC_OK) {
        return std::nullopt;
    }
    switch (block.header.kind) {
        case RX_KIND_RAW:
            return rangeOf<std::uint8_t>(decoded);
        case RX_KIND_UINT16:
            return rangeOf<std::uint16_t>(decoded);
        case RX_KIND_INT32:
            return rangeOf<std::int32_t>(decoded);
        case RX_KIND_FLOAT:
        case RX_KIND_PACKED_FLOAT:
            return rangeOf<float>(decoded);
        default:
            return rangeOf<std::uint32_t>(decoded);
    }
}

// --------------------------------------------------------------------------------------- blocks --

/// The reader's fate at each block. readThrough: the reader came to the end marker.
void listBlocks(CalibrationReport& report, bool readThrough) {
    const ByteView calibration = report.image.calibration;
    const std::uint64_t base = report.image.calibrationOffset;
    // The failing block is the one whose bytes the calibration's fault points into.
    const Fault* stop = nullptr;
    if (!readThrough && !report.faults.empty() && report.faults.back().offset >= base) {
        stop = &report.faults.back();
    }
    const std::vector<BlockPosition>& walked = report.walk.blocks;
    for (std::size_t i = 0; i < walked.size(); ++i) {
        const BlockPosition& block = walked[i];
        BlockReport row;
        row.header = block.header;
        row.name = blockName(block.header.id);
        row.custom = block.custom;
        row.offset = base + block.offset;
        row.payloadOffset = base + block.payloadOffset;
        row.payloadBytes = block.packedSize;
        row.range = decodeRange(calibration, block);
        const bool last = i + 1 == walked.size();
        const std::uint64_t next =
            last && !report.walk.endMarker
                ? std::numeric_limits<std::uint64_t>::max()
                : base + (last ? report.walk.endOffset : walked[i + 1].offset);
        if (stop != nullptr && stop->offset < row.offset) {
            row.outcome = BlockOutcome::NotReached;
        } else if (stop != nullptr && stop->blockId == block.header.id && stop->offset < next) {
            row.outcome = BlockOutcome::Failed;
        } else if (!block.known && !block.custom) {
            row.outcome = BlockOutcome::Ignored;
        }
        report.blocks.push_back(std::move(row));
    }
}

bool wasRead(const CalibrationReport& report, std::uint32_t id) {
    return std::any_of(report.blocks.begin(), report.blocks.end(), [id](const BlockReport& row) {
        return row.header.id == id && row.outcome == BlockOutcome::Read;
    });
}

// --------------------------------------------------------------------------------------- record --

/// Text of a record's 65-byte buffer; a text without terminator ends with the buffer.
std::string textOf(const char* buffer) {
    return std::string(buffer, strnlen(buffer, VANTRIC_TEXT_BYTES));
}

WigglingReport wigglingOf(const VantricWigglingTable& table) {
    const std::size_t entries = std::min<std::size_t>(table.capacity, VANTRIC_WIGGLING_ENTRIES);
    WigglingReport wiggling;
    wiggling.header = table.header;
    wiggling.third.assign(table.third, table.third + entries);
    wiggling.first.assign(table.first, table.first + entries);
    wiggling.second.assign(table.second, table.second + entries);
    return wiggling;
}

FrequencyReport frequencyOf(const CalibrationReport& report, const VantricFrequencyRecord& source,
                            unsigned index) {
    const std::uint32_t first = RX_BLOCK_FIRST_FREQUENCY + RX_BLOCKS_PER_FREQUENCY * index;
    const auto values = [](const float* data, std::uint8_t count) {
        return std::vector<float>(data, data + std::min<int>(count, VANTRIC_FREQUENCY_VALUES));
    };
    FrequencyReport frequency;
    frequency.index = index;
    frequency.id = source.frequencyId;
    if (wasRead(report, first + 1)) {
        frequency.pixelTable = source.pixelTable;
    }
    if (wasRead(report, first + 2)) {
        frequency.valuesA = values(source.valuesA, source.countA);
    }
    if (wasRead(report, first + 3)) {
        frequency.valuesB = values(source.valuesB, source.countB);
    }
    if (wasRead(report, first + 4)) {
        frequency.scalar = source.scalar;
    }
    if (wasRead(report, first + 5)) {
        frequency.wigglingA = wigglingOf(source.wigglingA);
    }
    if (wasRead(report, first + 6)) {
        frequency.wigglingB = wigglingOf(source.wigglingB);
    }
    return frequency;
}

StraylightReport straylightOf(const VantricCalibration& record) {
    // Making the PSF puts an origin point in front of the profile; the report shows the file's.
    const std::size_t points =
        std::min<std::size_t>(record.straylightPointCount, VANTRIC_STRAYLIGHT_POINTS + 1);
    const std::size_t skip = record.psf != nullptr && points > 0 ? 1 : 0;
    StraylightReport straylight;
    straylight.scale = record.straylightScale;
    straylight.radius.assign(record.straylightRadius + skip, record.straylightRadius + points);
    straylight.value.assign(record.straylightValue + skip, record.straylightValue + points);
    straylight.exponent = record.straylightExponent;
    straylight.offset = record.straylightOffset;
    straylight.centre = record.straylightCentre;
    straylight.psfWidth = record.psfWidth;
    straylight.psfHeight = record.psfHeight;
    return straylight;
}

/// The custom blocks' bytes, and the status that a caller of vantric_readCustomFields gets.
void readCustom(const CalibrationReport& report, RecordReport& record) {
    VantricCalibration& calibration = *report.calibration;
    if (calibration.customFieldCount == 0) {
        return;
    }
    record.customStatus = vantric_readCustomFields(report.image.calibration.data(),
                                                   report.image.calibration.size(), &calibration);
    if (record.customStatus != VANTRIC_OK) {
        return;
    }
    for (std::uint32_t k = 0; k < calibration.customFieldCount; ++k) {
        const VantricCustomField& field = calibration.customFields[k];
        CustomReport custom;
        custom.blockId = calibration.firstCustomFieldId + k;
        if (field.data != nullptr) {
            custom.bytes.assign(field.data, field.data + field.size);
        }
        record.custom.push_back(std::move(custom));
    }
}

RecordReport recordOf(const CalibrationReport& report, bool complete) {
    const VantricCalibration& source = *report.calibration;
    RecordReport record;
    record.columns = source.imagerArea.columns;
    record.rows = source.imagerArea.rows;
    const std::uint64_t pixels = std::uint64_t{record.columns} * record.rows;
    if (wasRead(report, RX_BLOCK_AUX_FLAG)) {
        record.auxFlag = source.auxFlag;
    }
    if (wasRead(report, RX_BLOCK_LENS_PARAMETERS)) {
        std::copy_n(source.lensParameters, VANTRIC_LENS_PARAMETERS, record.lens.emplace().begin());
    }
    if (wasRead(report, RX_BLOCK_MASK)) {
        record.pixelMask = source.pixelMask;
        const auto zerosUpTo = [&](std::uint64_t end) {
            return static_cast<std::uint64_t>(
                std::count(source.pixelMask, source.pixelMask + end, std::uint8_t{0}));
        };
        record.maskedPixels = zerosUpTo(pixels);
        record.zeroMaskCount = zerosUpTo(std::min(pixels, cutMaskPixels));
    }
    if (wasRead(report, RX_BLOCK_PIXEL_VALUES)) {
        record.pixelValues = source.pixelValues;
    }
    if (wasRead(report, RX_BLOCK_DATE)) {
        record.text0 = textOf(source.text0);
    }
    if (wasRead(report, RX_BLOCK_TEXT1)) {
        record.text1 = textOf(source.text1);
    }
    if (wasRead(report, RX_BLOCK_TEXT2)) {
        record.text2 = textOf(source.text2);
    }
    if (wasRead(report, RX_BLOCK_ID_BYTES)) {
        record.idBytes.assign(source.idBytes,
                              source.idBytes + std::min<int>(source.idBytesSize, VANTRIC_ID_BYTES));
    }
    if (wasRead(report, RX_BLOCK_ID_CODES)) {
        record.idCodes = {source.idCode0, source.idCode1};
    }
    if (wasRead(report, RX_BLOCK_STRAYLIGHT)) {
        record.straylight = straylightOf(source);
    }
    // The reader fills the frequency records by id, so a calibration that leaves one out has a gap.
    for (unsigned k = 0; k < VANTRIC_FREQUENCIES; ++k) {
        if (wasRead(report, RX_BLOCK_FIRST_FREQUENCY + RX_BLOCKS_PER_FREQUENCY * k)) {
            record.frequencies.push_back(frequencyOf(report, source.frequencies[k], k));
        }
    }
    if (complete) {
        record.directions = source.directions;
        record.psf = source.psf;
        readCustom(report, record);
    }
    return record;
}

// ----------------------------------------------------------------------------------------- read --

/// The record for a claimed sensor size is allocated before the first block is looked at. Two
/// per-pixel tables of at least one bit a value are required, so a much shorter file cannot read.
std::optional<Fault> impossibleSize(const CalibrationReport& report) {
    const std::uint64_t pixels =
        std::uint64_t{report.walk.header.columns} * report.walk.header.rows;
    const std::uint64_t needed = 2 * vantric_getRXPackedSize(pixels, 1);
    const std::uint64_t present = report.image.calibration.size();
    if (needed <= present) {
        return std::nullopt;
    }
    Fault fault;
    fault.what = "sensor too large for the data";
    fault.expected = fmt::format("at least {} bytes for {} x {} pixels", needed,
                                 report.walk.header.columns, report.walk.header.rows);
    fault.found = fmt::format("{} bytes; not handed to the reader", present);
    fault.offset = report.image.calibrationOffset + 7;  // columns and rows of the packed header
    return fault;
}

/// Statuses with which the reader refuses a calibration as a whole, at its end marker.
bool comesAfterTheBlocks(std::uint32_t status) {
    return status == VANTRIC_ERR_FIELD_EMPTY || status == VANTRIC_ERR_VALUE_UNSET;
}

/// Fills status, record and blocks.
void readInto(CalibrationReport& report) {
    const ByteView calibration = report.image.calibration;
    report.walk = walkBlocks(calibration);
    if (report.walk.headerStatus == VANTRIC_OK) {
        if (std::optional<Fault> fault = impossibleSize(report)) {
            report.faults.push_back(std::move(*fault));
            listBlocks(report, false);
            return;
        }
    }
    CalibrationRead read = readCalibration(calibration, report.image.calibrationOffset, true);
    report.status = read.status;
    report.failedBlockId = read.failedBlockId;
    if (read.fault) {
        report.faults.push_back(std::move(*read.fault));
    }
    bool readThrough = read.status == VANTRIC_OK || comesAfterTheBlocks(read.status);
    if (!readThrough) {
        // Directions and PSF have statuses of their own: ask without them.
        CalibrationRead plain = readCalibration(calibration, report.image.calibrationOffset, false);
        readThrough = plain.status == VANTRIC_OK;
        read.record = std::move(plain.record);
    }
    listBlocks(report, readThrough);
    report.calibration = std::move(read.record);
    if (report.calibration) {
        report.record = recordOf(report, report.status == VANTRIC_OK);
    }
    if (report.walk.endMarker) {
        report.trailingBytes = calibration.size() - report.walk.endOffset - 1;
    }
}

/// Bytes of the UTF-8 sequence at the start of text when it is well-formed and printable, else 0.
std::size_t printableSequence(std::string_view text) {
    const auto byte = [text](std::size_t at) { return static_cast<unsigned char>(text[at]); };
    const unsigned lead = byte(0);
    if (lead < 0x80) {
        return lead >= 0x20 && lead != 0x7F ? 1 : 0;
    }
    const std::size_t length = lead >= 0xF0 ? 4 : lead >= 0xE0 ? 3 : 2;
    if (lead < 0xC2 || lead > 0xF4 || text.size() < length) {
        return 0;
    }
    std::uint32_t point = lead & (0x7FU >> length);
    for (std::size_t i = 1; i < length; ++i) {
        if ((byte(i) & 0xC0U) != 0x80U) {
            return 0;
        }
        point = point << 6 | (byte(i) & 0x3FU);
    }
    const bool overlong = point < (length == 4 ? 0x10000U : length == 3 ? 0x800U : 0x80U);
    const bool surrogate = point >= 0xD800 && point <= 0xDFFF;
    // C1 controls, and the marks that turn the direction of what follows on a terminal.
    const bool control = point < 0xA0 || (point >= 0x200E && point <= 0x200F) ||
                         (point >= 0x2028 && point <= 0x202E) ||
                         (point >= 0x2066 && point <= 0x2069) || (point & 0xFFFEU) == 0xFFFEU;
    return overlong || surrogate || control || point > 0x10FFFF ? 0 : length;
}

}  // namespace

const char* outcomeName(BlockOutcome outcome) {
    switch (outcome) {
        case BlockOutcome::Read:
            return "read";
        case BlockOutcome::Ignored:
            return "ignored";
        case BlockOutcome::Failed:
            return "failed";
        case BlockOutcome::NotReached:
            return "not reached";
    }
    return "";
}

CalibrationReport makeReport(std::string path, std::vector<std::uint8_t> file, Layout layout) {
    CalibrationReport report;
    report.path = std::move(path);
    report.file = std::move(file);
    report.image = parseImage(report.file, layout);
    if (report.image.fault) {
        report.faults.push_back(*report.image.fault);
    }
    if (!report.image.calibration.empty()) {
        readInto(report);
    }
    if (std::optional<Fault> fault = signatureFault(report.image)) {
        report.faults.push_back(std::move(*fault));
    }
    return report;
}

std::string escapeBytes(std::string_view bytes) {
    std::string text;
    for (const char c : bytes) {
        const auto byte = static_cast<unsigned char>(c);
        if (c == '\\') {
            text += "\\\\";
        } else if (byte >= 0x20 && byte < 0x7F) {
            text += c;
        } else {
            text += fmt::format("\\x{:02x}", byte);
        }
    }
    return text;
}

std::string escapePath(std::string_view path) {
    std::string text;
    while (!path.empty()) {
        const std::size_t length = printableSequence(path);
        text += length > 0 ? std::string(path.substr(0, length)) : escapeBytes(path.substr(0, 1));
        path.remove_prefix(std::max<std::size_t>(length, 1));
    }
    return text;
}

std::string hexText(ByteView bytes) {
    std::string text;
    text.reserve(bytes.size() * 2);
    for (const std::uint8_t byte : bytes) {
        text += fmt::format("{:02x}", byte);
    }
    return text;
}

}  // namespace calcut::tools
