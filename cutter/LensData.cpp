#include "cutter/LensData.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>

#include "calibration/calibration.h"
#include "cutter/FileAccess.h"

namespace {

constexpr const char* lensFileName = "/lensdata.dat";

constexpr std::size_t lensFileFloats = 9;
constexpr std::size_t lensFileBytes = lensFileFloats * sizeof(float);
static_assert(lensFileBytes == 36 && lensFileFloats == VANTRIC_LENS_PARAMETERS);

// Camera models of the callers want cx, cy, fx, fy, p1, p2, k1, k2, k3.
constexpr std::array<std::size_t, lensFileFloats> fileIndexOfParameter = {2, 3, 0, 1, 6,
                                                                          7, 4, 5, 8};

// The count always covers the sensor that the stack serves.
constexpr std::size_t sensorPixels = std::size_t{224} * 172;

struct CalibrationRelease {
    void operator()(VantricCalibration* record) const { vantric_freeCalibration(record); }
};
using CalibrationOwner = std::unique_ptr<VantricCalibration, CalibrationRelease>;

CalibrationOwner readRecord(const ByteBuffer& calibration) {
    VantricCalibration* record = nullptr;
    vantric_readCalibration(calibration.data(), calibration.size(), &record);
    return CalibrationOwner(record);
}

}  // namespace

bool writeLensData(const ByteBuffer& calibration, const std::string& outputPath,
                   EEPROMMetaInformation& meta) {
    const CalibrationOwner record = readRecord(calibration);
    if (!record || record->pixelMask == nullptr || record->lensParameters == nullptr) {
        return false;
    }
    // The pixel count for which the record was made bounds the mask, whichever format it came from.
    const std::int32_t pixels =
        vantric_dispatchGetNumPixels(calibration.data(), calibration.size());
    const std::size_t counted =
        std::min(sensorPixels, static_cast<std::size_t>(std::max(pixels, 0)));
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
