#include "calibration/packed/CalibrationStream.h"

VantricStream vantric_createStreamFromData(const uint8_t* data, uint64_t size) {
    return {data, 0, size};
}

uint32_t vantric_canRead(const VantricStream* stream, uint64_t count) {
    return vantric::canRead(*stream, count) ? VANTRIC_OK : VANTRIC_ERR_END_OF_DATA;
}
