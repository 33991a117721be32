#include "calibration/packed/Handler.h"

#include <cstdlib>
#include <limits>
#include <utility>

#include "calibration/calibration.h"
#include "calibration/memory.h"
#include "calibration/packed/Block.h"
#include "calibration/psf.h"

namespace vantric {

namespace {

bool readsHeader(const std::uint8_t* data, std::size_t size, RXHeader& header) {
    VantricStream stream = vantric_createStreamFromData(data, size);
    return vantric_readRXHeader(&stream, &header) == VANTRIC_OK && header.version == packedVersion;
}

// Checks the file header before a record is made.
Refusal refusalOfHeader(const std::uint8_t* data, std::size_t size, RXHeader& header) {
    VantricStream stream = vantric_createStreamFromData(data, size);
    Refusal refusal = readFileHeader(stream, header);
    if (refusal.refused()) {
        // The status of data that no handler accepts, whatever is wrong with the header.
        refusal.status = VANTRIC_ERR_NOT_SUPPORTED;
        return refusal;
    }
    if (header.version != packedVersion) {
        return refusedFor(VANTRIC_ERR_NOT_SUPPORTED, Cause::wrongVersion, versionOffset,
                          packedVersion, header.version);
    }
    const std::uint32_t pixels = std::uint32_t{header.columns} * header.rows;
    constexpr std::uint32_t mostPixels = std::numeric_limits<std::int32_t>::max();
    if (pixels == 0) {
        return refusedFor(VANTRIC_ERR_INVALID_DATA, Cause::noPixels, columnsOffset, 1, 0);
    }
    if (pixels > mostPixels) {
        return refusedFor(pixels, Cause::tooManyPixels, columnsOffset, mostPixels, pixels);
    }
    return {};
}

// A calibration has at least two per-pixel tables of one bit a value.
bool isTooShortFor(std::uint32_t numPixels, std::size_t size) {
    return 2 * vantric_getRXPackedSize(numPixels, 1) > size;
}

}  // namespace

bool isPackedHandler(const VantricCalibrationHandler& handler) {
    const VantricCalibrationHandler own = vantric_getRXCalibrationHandler();
    return handler.supports == own.supports && handler.readCalibration == own.readCalibration &&
           handler.readCustomFields == own.readCustomFields &&
           handler.calcPsfAndDirections == own.calcPsfAndDirections &&
           handler.getCalibrationType == own.getCalibrationType &&
           handler.getNumPixels == own.getNumPixels;
}

RXReadResult readPackedInto(VantricCalibration& record, std::uint64_t madeFor, TableOwner table,
                            const std::uint8_t* data, std::size_t size, Wanted wanted,
                            WalkObserver* observer) {
    RXHeader header = {};
    if (!readsHeader(data, size, header)) {
        return {VANTRIC_ERR_NOT_SUPPORTED, noFailedBlock};
    }
    const std::uint64_t numPixels = std::uint64_t{header.columns} * header.rows;
    if (numPixels > madeFor || !fillTessalyTable(*table, record, numPixels, wanted)) {
        return {VANTRIC_ERR_BUFFER_TOO_SMALL, noFailedBlock};
    }
    VantricStream stream = vantric_createStreamFromData(data, size);
    return readBlocks(stream, table.get(), observer);
}

Refusal refusalOfDirectionsAndPsf(const VantricCalibration& record, std::uint32_t numPixels) {
    const bool isCountable =
        std::uint64_t{numPixels} * floatsPerDirection <= std::numeric_limits<std::uint32_t>::max();
    if (!isCountable || pixelsOf(record.imagerArea) != numPixels) {
        return refusedFor(VANTRIC_ERR_ALREADY_SET, Cause::noPsf, columnsOffset, 0, numPixels);
    }
    if (record.lensParameters == nullptr) {
        return refusedFor(VANTRIC_ERR_BUFFER_TOO_SMALL, Cause::outOfMemory, columnsOffset, 0, 0);
    }
    if (vantric_validFloatField(record.straylightScale) == 0) {
        return {};
    }
    const std::uint32_t status = psfStatus(record);
    if (status != VANTRIC_ERR_BUFFER_TOO_SMALL) {
        return refusedFor(status, status == VANTRIC_OK ? Cause::none : Cause::noPsf, 0, 0, 0);
    }
    return refusedFor(status, Cause::psfTooLarge, 0, VANTRIC_MAX_PSF_ELEMENTS,
                      std::uint64_t{record.psfWidth} * record.psfHeight);
}

PackedRead readPacked(const std::uint8_t* data, std::size_t size, Wanted wanted,
                      WalkObserver* observer) {
    RXHeader header = {};
    const Refusal refusal = refusalOfHeader(data, size, header);
    PackedRead read = {{refusal.status, noFailedBlock}, nullptr};
    const auto tell = [&](const Refusal& why, std::uint32_t blockId) {
        if (observer != nullptr) {
            observer->refused(why, blockId);
        }
    };
    if (refusal.refused()) {
        tell(refusal, noFailedBlock);
        return read;
    }
    const std::uint32_t numPixels = std::uint32_t{header.columns} * header.rows;
    if (wanted == Wanted::cut || isTooShortFor(numPixels, size)) {
        wanted = Wanted::withoutTables;
    }
    TableOwner table = newTessalyTable();
    read.record.reset(allocateCalibration(numPixels, wanted));
    read.result =
        readPackedInto(*read.record, numPixels, std::move(table), data, size, wanted, observer);
    if (read.result.status != VANTRIC_OK) {
        return read;
    }
    const Refusal after = refusalOfDirectionsAndPsf(*read.record, numPixels);
    read.result.status = wanted == Wanted::everything
                             ? vantric_calcRXPsfAndDirections(read.record.get(), numPixels)
                             : after.status;
    if (read.result.status != VANTRIC_OK) {
        tell(
            after.refused() ? after : Refusal{read.result.status, Cause::noPsf, 0, 0, 0, 0},
            after.cause == Cause::psfTooLarge ? std::uint32_t{RX_BLOCK_STRAYLIGHT} : noFailedBlock);
    }
    return read;
}

}  // namespace vantric

using namespace vantric;

VantricCalibrationHandler vantric_getRXCalibrationHandler(void) {
    return {vantric_supportsRXCalibration, vantric_readRXHandlerCalibration,
            vantric_readRXCustomFields,    vantric_calcRXPsfAndDirections,
            vantric_getRXCalibrationType,  vantric_getRXNumPixels};
}

int vantric_supportsRXCalibration(const uint8_t* data, size_t size) {
    RXHeader header = {};
    return readsHeader(data, size, header) ? 1 : 0;
}

int32_t vantric_getRXNumPixels(const uint8_t* data, size_t size) {
    RXHeader header = {};
    VantricStream stream = vantric_createStreamFromData(data, size);
    const std::uint32_t status = vantric_readRXHeader(&stream, &header);
    return static_cast<std::int32_t>(
        status != VANTRIC_OK ? status : std::uint32_t{header.columns} * header.rows);
}

uint32_t vantric_getRXCalibrationType(void) {
    return packedCalibrationType;
}

RXReadResult vantric_readRXHandlerCalibration(const uint8_t* data, size_t size,
                                              VantricCalibration* calibration) {
    // Only the caller knows how many pixels the record was made for.
    constexpr std::uint64_t anyNumber = std::numeric_limits<std::uint64_t>::max();
    return readPackedInto(*calibration, anyNumber, newTessalyTable(), data, size,
                          Wanted::everything, nullptr);
}

uint32_t vantric_readRXCustomFields(const uint8_t* data, size_t size,
                                    VantricCalibration* calibration) {
    RXHeader header = {};
    if (!readsHeader(data, size, header)) {
        return VANTRIC_ERR_NOT_SUPPORTED;
    }
    VantricStream stream = vantric_createStreamFromData(data, size);
    return vantric_readRXCustomData(&stream, calibration);
}

uint32_t vantric_calcRXPsfAndDirections(VantricCalibration* calibration, uint32_t numPixels) {
    const std::uint64_t count = std::uint64_t{numPixels} * floatsPerDirection;
    if (count > std::numeric_limits<std::uint32_t>::max()) {
        return VANTRIC_ERR_ALREADY_SET;  // as for any count that is not that of the image
    }
    Owned<float> directions(allocate<float>(count));
    if (!directions || calibration->lensParameters == nullptr) {
        return VANTRIC_ERR_BUFFER_TOO_SMALL;
    }
    const std::uint32_t status =
        vantric_updateDirections(directions.get(), static_cast<std::uint32_t>(count),
                                 calibration->lensParameters, &calibration->imagerArea);
    if (status != VANTRIC_OK) {
        return status;
    }
    std::free(calibration->directions);
    calibration->directions = directions.release();
    if (vantric_validFloatField(calibration->straylightScale) == 0) {
        return VANTRIC_OK;
    }
    return vantric_allocateAndCalculatePsf(calibration);
}
