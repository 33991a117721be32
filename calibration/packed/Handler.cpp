#include "calibration/packed/Handler.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>

#include "calibration/calibration.h"
#include "calibration/directions.h"
#include "calibration/memory.h"
#include "calibration/packed/Block.h"
#include "calibration/packed/Reader.h"

using namespace vantric;

namespace {

constexpr std::uint32_t supportedVersion = 1;

bool readsHeader(const std::uint8_t* data, std::size_t size, RXHeader& header) {
    VantricStream stream = vantric_createStreamFromData(data, size);
    return vantric_readRXHeader(&stream, &header) == VANTRIC_OK &&
           header.version == supportedVersion;
}

}  // namespace

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
    RXHeader header = {};
    if (!readsHeader(data, size, header)) {
        return {VANTRIC_ERR_NOT_SUPPORTED, noFailedBlock};
    }
    const std::uint64_t numPixels = std::uint64_t{header.columns} * header.rows;
    VantricStream stream = vantric_createStreamFromData(data, size);
    return vantric_readRXCalibration(&stream, vantric_createTessalyTable(calibration, numPixels));
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
    if (count > UINT32_MAX) {
        return VANTRIC_ERR_ALREADY_SET;  // more than the rays of any image
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
