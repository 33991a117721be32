// Whatever a host can do with a calibration in memory, done with arbitrary bytes.
#include <cmath>
#include <cstring>

#include "calcut/vantric.h"
#include "calcut/vantric_rx.h"
#include "Reading.h"
#include "targets.h"

namespace fuzz {

namespace {

constexpr std::uint32_t firstNegative = 0x80000000U;

bool documentedReadStatus(std::uint32_t status) {
    switch (status) {
        case VANTRIC_OK:
        case VANTRIC_ERR_NOT_SUPPORTED:
        case VANTRIC_ERR_END_OF_DATA:
        case VANTRIC_ERR_INVALID_ARGUMENT:
        case VANTRIC_ERR_VALUE_UNSET:
        case VANTRIC_ERR_BUFFER_TOO_SMALL:
        case VANTRIC_ERR_COUNT_TOO_SMALL:
        case VANTRIC_ERR_INVALID_DATA:
        case VANTRIC_ERR_FIELD_EMPTY:
            return true;
        default:
            return false;
    }
}

void copyEquals(const VantricCalibration& record, std::uint64_t pixels) {
    const Record copy(vantric_copyCalibration(&record));
    require(copy->firstCustomFieldId == 255, "a copy has no custom field ids");
    require((copy->directions == nullptr) == (record.directions == nullptr), "directions go along");
    const auto equal = [](const auto* a, const auto* b, std::uint64_t count) {
        return a == nullptr || b == nullptr || count == 0 ||
               std::memcmp(a, b, count * sizeof *a) == 0;
    };
    require(equal(copy->pixelMask, record.pixelMask, pixels) &&
                equal(copy->pixelValues, record.pixelValues, pixels) &&
                equal(copy->directions, record.directions, pixels * 3) &&
                equal(copy->psf, record.psf, std::uint64_t{record.psfWidth} * record.psfHeight),
            "a copy has the same content");
    touchRecord(*copy, pixels);
}

void wholeInterface(const std::uint8_t* data, std::size_t size, bool withPsf) {
    const std::int32_t pixels = vantric_dispatchGetNumPixels(data, size);
    VantricCalibration* raw = nullptr;
    const std::uint32_t status = vantric_readCalibrationExt(data, size, &raw, withPsf ? 1 : 0);
    const Record record(raw);
    require((status == VANTRIC_OK) == (record != nullptr), "a record comes with success only");
    // A pixel count of 2^31 or more is its own status.
    require(documentedReadStatus(status) ||
                (status >= firstNegative && status == static_cast<std::uint32_t>(pixels)),
            "the status of a read is a documented one");
    if (!record) {
        return;
    }
    require(record->version == 1 && record->calibrationType == 3 &&
                vantric_getCalibrationTypeFromHandle(record.get()) == 3,
            "a packed calibration has type 3");
    require((record->directions != nullptr) == withPsf, "directions as asked for");
    require((record->psf != nullptr) == (withPsf && !std::isnan(record->straylightScale)),
            "a PSF as asked for");
    const auto count = static_cast<std::uint64_t>(pixels);
    touchRecord(*record, count);
    everyField(*record, false);
    const std::uint32_t custom = vantric_readCustomFields(data, size, record.get());
    require(custom == VANTRIC_OK || custom == VANTRIC_ERR_END_OF_DATA ||
                custom == VANTRIC_ERR_BUFFER_TOO_SMALL || custom == VANTRIC_ERR_INVALID_DATA,
            "the status of a custom field pass is a documented one");
    if (vantric_getNumCustomFields(record.get()) != 0) {
        require(vantric_readCustomFields(data, size, record.get()) == VANTRIC_ERR_INVALID_ARGUMENT,
                "custom fields are read once, whatever the first answer was");
    }
    everyField(*record, true);
    copyEquals(*record, count);
}

// The format's own layer, with buffers of exactly the size that it asks for.
void everyBlock(const std::uint8_t* data, std::size_t size) {
    VantricStream stream = vantric_createStreamFromData(data, size);
    RXHeader header = {};
    if (vantric_readRXHeader(&stream, &header) != VANTRIC_OK) {
        return;
    }
    RXBlockHeader block = {};
    while (vantric_readRXBlockHeader(&stream, &header, &block) == VANTRIC_OK &&
           block.id != VANTRIC_RX_END_MARKER) {
        const std::uint64_t packed = vantric_getRXPackedBlockSize(&block);
        const std::uint64_t decoded = vantric_getRXUnpackedBlockSize(&block);
        const bool present = vantric_canRead(&stream, packed) == VANTRIC_OK;
        // One bit can stand for four bytes, so what is present bounds what is decoded.
        if (!present || decoded > 64 * (std::uint64_t{size} + 1)) {
            stream.position += packed;
            continue;
        }
        const std::uint64_t before = stream.position;
        Bytes scratch(packed + decoded);
        Bytes values(decoded);
        const std::uint32_t status = vantric_decodeRXBlock(
            &stream, &block, scratch.data(), scratch.size(), values.data(), values.size());
        require(status == VANTRIC_OK || status == VANTRIC_ERR_INVALID_DATA ||
                    status == VANTRIC_ERR_END_OF_DATA,
                "a block that is present decodes or is refused");
        require(stream.position == before + packed, "the cursor stands behind the payload");
    }
}

}  // namespace

void calibration(const std::uint8_t* data, std::size_t size) {
    const int supported = vantric_supportsRXCalibration(data, size);
    require(vantric_getCalibrationType(data, size) == (supported != 0 ? 3U : 0U),
            "the type goes by the header");
    everyBlock(data, size);
    wholeInterface(data, size, false);
    wholeInterface(data, size, true);
}

}  // namespace fuzz
