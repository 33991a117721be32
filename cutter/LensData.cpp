#include "cutter/LensData.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "calibration/dispatcher.h"
#include "cutter/FileAccess.h"

namespace {

constexpr std::size_t lensFileFloats = 9;
constexpr std::size_t lensFileBytes = lensFileFloats * sizeof(float);
static_assert(lensFileBytes == 36 && lensFileFloats == VANTRIC_LENS_PARAMETERS);

// Which of the file's values, which are in the record's order, the callers' camera models take.
constexpr std::array<std::size_t, lensFileFloats> fileIndexOfParameter = {
    VANTRIC_LENS_CX, VANTRIC_LENS_CY, VANTRIC_LENS_FX, VANTRIC_LENS_FY, VANTRIC_LENS_P1,
    VANTRIC_LENS_P2, VANTRIC_LENS_K1, VANTRIC_LENS_K2, VANTRIC_LENS_K3};

// So many entries of the mask are counted, of a smaller one all.
constexpr std::size_t sensorPixels = std::size_t{CALCUT_SENSOR_COLUMNS} * CALCUT_SENSOR_ROWS;

// One register of bytes that compilers keep as one, on every machine that has such registers.
using Bytes16 [[gnu::vector_size(16)]] = std::uint8_t;

Bytes16 load(const std::uint8_t* from) {
    Bytes16 bytes;
    std::memcpy(&bytes, from, sizeof bytes);
    return bytes;
}

// Each byte of a few registers counts the zeros of its own column, at most 255 of them, before all
// are added up.
std::size_t countZeros(const std::uint8_t* bytes, std::size_t size) {
    constexpr std::size_t registers = 4;
    constexpr std::size_t stride = registers * sizeof(Bytes16);
    std::size_t zeros = 0;
    while (size >= stride) {
        const std::size_t rows = std::min<std::size_t>(size / stride, UINT8_MAX);
        std::array<Bytes16, registers> counts = {};
        for (std::size_t row = 0; row < rows; ++row, bytes += stride) {
#pragma GCC unroll 4
            for (std::size_t k = 0; k < registers; ++k) {
                // A comparison that holds is -1.
                counts[k] -= static_cast<Bytes16>(load(bytes + k * sizeof(Bytes16)) == 0);
            }
        }
        for (const Bytes16& each : counts) {
            for (std::size_t lane = 0; lane < sizeof each; ++lane) {
                zeros += each[lane];
            }
        }
        size -= rows * stride;
    }
    return zeros + static_cast<std::size_t>(std::count(bytes, bytes + size, std::uint8_t{0}));
}

}  // namespace

bool writeLensData(calcut::image::Bytes calibration, const std::string& outputPath,
                   EEPROMMetaInformation& meta) {
    // The status is not looked at: whatever record a handler hands out is used.
    const vantric::HandlerRead read = vantric::readThroughHandlers(
        calibration.data(), calibration.size(), vantric::Wanted::cut, true);
    const VantricCalibration* record = read.record.get();
    if (record == nullptr || record->pixelMask == nullptr || record->lensParameters == nullptr) {
        return false;
    }
    const std::size_t counted = std::min<std::size_t>(sensorPixels, read.numPixels);
    meta.zeroMaskCount = static_cast<std::uint16_t>(countZeros(record->pixelMask, counted));
    return writeWholeFile(outputPath + "/" CALCUT_LENS_FILE, record->lensParameters, lensFileBytes);
}

bool readLensData(const std::string& path, float* parameters) {
    const InputFile file(path);
    if (file.size() % sizeof(float) != 0 || file.size() < lensFileBytes) {
        return false;
    }
    std::array<std::uint8_t, lensFileBytes> bytes;
    file.read(bytes.data(), bytes.size());
    for (std::size_t i = 0; i < lensFileFloats; ++i) {
        std::memcpy(parameters + i, bytes.data() + fileIndexOfParameter[i] * sizeof(float),
                    sizeof(float));
    }
    parameters[lensFileFloats] = 0.0F;
    return true;
}
