#include "cutter/LensData.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "calibration/dispatcher.h"
#include "cutter/FileAccess.h"

namespace {

constexpr const char* lensFileName = "/lensdata.dat";

constexpr std::size_t lensFileFloats = 9;
constexpr std::size_t lensFileBytes = lensFileFloats * sizeof(float);
static_assert(lensFileBytes == 36 && lensFileFloats == VANTRIC_LENS_PARAMETERS);

// Camera models of the callers want cx, cy, fx, fy, p1, p2, k1, k2, k3.
constexpr std::array<std::size_t, lensFileFloats> fileIndexOfParameter = {2, 3, 0, 1, 6,
                                                                          7, 4, 5, 8};

}  // namespace

bool writeLensData(const ByteBuffer& calibration, const std::string& outputPath,
                   EEPROMMetaInformation& meta) {
    // The status is not looked at: whatever record a handler hands out is used.
    const vantric::HandlerRead read = vantric::readThroughHandlers(
        calibration.data(), calibration.size(), vantric::Wanted::cut, true);
    const VantricCalibration* record = read.record.get();
    if (record == nullptr || record->pixelMask == nullptr || record->lensParameters == nullptr) {
        return false;
    }
    const std::size_t counted = std::min<std::size_t>(sensorPixels, read.numPixels);
    meta.zeroMaskCount = static_cast<std::uint16_t>(
        std::count(record->pixelMask, record->pixelMask + counted, std::uint8_t{0}));
    return writeWholeFile(outputPath + lensFileName, record->lensParameters, lensFileBytes);
}

bool readLensData(const std::string& path, float* parameters) {
    const FileContent file = readFile(path, lensFileBytes);
    if (file.size % sizeof(float) != 0 || file.size < lensFileBytes) {
        return false;
    }
    for (std::size_t i = 0; i < lensFileFloats; ++i) {
        std::memcpy(parameters + i, file.bytes.data() + fileIndexOfParameter[i] * sizeof(float),
                    sizeof(float));
    }
    parameters[lensFileFloats] = 0.0F;
    return true;
}
