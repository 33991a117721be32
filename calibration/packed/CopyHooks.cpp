#include "calibration/packed/CopyHooks.h"

#include <algorithm>
#include <array>
#include <cinttypes>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <limits>

#include "calibration/memory.h"

namespace vantric {

namespace {

constexpr std::uint64_t shortestDateTarget = 26;
constexpr std::size_t longestDateSuffix = 14;  // " (4294967295)" and the terminator

// The part of the record that a straylight block fills, from straylightScale on.
constexpr std::size_t straylightBegin = offsetof(VantricCalibration, straylightScale);
constexpr std::size_t straylightPsfWidth = offsetof(VantricCalibration, psfWidth) - straylightBegin;
constexpr std::size_t straylightPsfHeight =
    offsetof(VantricCalibration, psfHeight) - straylightBegin;
constexpr std::size_t straylightPoints =
    offsetof(VantricCalibration, straylightPointCount) - straylightBegin;
static_assert(offsetof(VantricCalibration, psf) - straylightBegin == straylightSize);

// Words of a straylight block.
enum StraylightWord : std::size_t {
    straylightScaleWord = 0,
    straylightRadiusWord = 1,
    straylightValueWord = straylightRadiusWord + VANTRIC_STRAYLIGHT_POINTS,
    straylightExponentWord = straylightValueWord + VANTRIC_STRAYLIGHT_POINTS,
    straylightOffsetWord,
    straylightCentreWord,
    straylightWidthWord,
    straylightHeightWord
};
static_assert(straylightHeightWord + 1 == straylightWords);

std::uint32_t wordAt(const void* source, std::uint64_t index) {
    std::uint32_t word;
    std::memcpy(&word, static_cast<const std::uint8_t*>(source) + index * sizeof word, sizeof word);
    return word;
}

float floatAt(const void* source, std::uint64_t index) {
    float value;
    std::memcpy(&value, static_cast<const std::uint8_t*>(source) + index * sizeof value,
                sizeof value);
    return value;
}

// Truncates as the conversion instruction of 64-bit Arm does: NaN and negative values give 0, too
// large values the largest number.
std::uint32_t truncateSaturating(float value) {
    if (!(value > 0.0F)) {
        return 0;
    }
    return value >= 4294967296.0F ? std::numeric_limits<std::uint32_t>::max()
                                  : static_cast<std::uint32_t>(value);
}

}  // namespace

std::uint32_t copyMask(const void* source, std::uint64_t sourceSize, void* destination,
                       std::uint64_t destinationSize, std::uint8_t* /*countField*/) {
    const std::uint64_t words = sourceSize / sizeof(std::uint32_t);
    if (destinationSize < words) {
        return VANTRIC_ERR_BUFFER_TOO_SMALL;
    }
    auto* mask = static_cast<std::uint8_t*>(destination);
    for (std::uint64_t i = 0; i < destinationSize; ++i) {
        mask[i] = static_cast<std::uint8_t>(wordAt(source, i));
    }
    return VANTRIC_OK;
}

std::uint32_t convertAndCopyDate(const void* source, std::uint64_t sourceSize, void* destination,
                                 std::uint64_t destinationSize, std::uint8_t* /*countField*/) {
    if (sourceSize != sizeof(std::uint32_t)) {
        return VANTRIC_ERR_INVALID_DATA;
    }
    if (destinationSize < shortestDateTarget) {
        return VANTRIC_ERR_BUFFER_TOO_SMALL;
    }
    auto* text = static_cast<char*>(destination);
    text[destinationSize - 1] = '\0';
    const std::size_t length = std::strlen(text);
    if (length + longestDateSuffix >= destinationSize) {
        return VANTRIC_ERR_BUFFER_TOO_SMALL;
    }
    static_cast<void>(std::snprintf(text + length, destinationSize - length, " (%" PRIu32 ")",
                                    wordAt(source, 0)));
    return VANTRIC_OK;
}

std::uint32_t copyString(const void* source, std::uint64_t sourceSize, void* destination,
                         std::uint64_t destinationSize, std::uint8_t* /*countField*/) {
    if (sourceSize >= destinationSize) {
        return VANTRIC_ERR_BUFFER_TOO_SMALL;
    }
    auto* text = static_cast<char*>(destination);
    copyElements(text, static_cast<const char*>(source), sourceSize);
    text[sourceSize] = '\0';
    return VANTRIC_OK;
}

std::uint32_t copyStraylight(const void* source, std::uint64_t sourceSize, void* destination,
                             std::uint64_t destinationSize, std::uint8_t* countField) {
    if (sourceSize / sizeof(std::uint32_t) != straylightWords ||
        destinationSize != straylightSize) {
        return VANTRIC_ERR_INVALID_DATA;
    }
    auto* run = static_cast<std::uint8_t*>(destination);
    const auto* words = static_cast<const std::uint8_t*>(source);
    const auto copyFloats = [&](std::size_t recordOffset, std::size_t firstWord,
                                std::size_t count) {
        std::memcpy(run + (recordOffset - straylightBegin), words + firstWord * sizeof(float),
                    count * sizeof(float));
    };
    const auto storePsfSize = [&](std::size_t runOffset, std::size_t word) {
        const std::uint32_t size = truncateSaturating(floatAt(source, word));
        std::memcpy(run + runOffset, &size, sizeof size);
    };
    copyFloats(offsetof(VantricCalibration, straylightScale), straylightScaleWord, 1);
    copyFloats(offsetof(VantricCalibration, straylightRadius), straylightRadiusWord,
               VANTRIC_STRAYLIGHT_POINTS);
    copyFloats(offsetof(VantricCalibration, straylightValue), straylightValueWord,
               VANTRIC_STRAYLIGHT_POINTS);
    copyFloats(offsetof(VantricCalibration, straylightExponent), straylightExponentWord, 1);
    copyFloats(offsetof(VantricCalibration, straylightOffset), straylightOffsetWord, 1);
    copyFloats(offsetof(VantricCalibration, straylightCentre), straylightCentreWord, 1);
    storePsfSize(straylightPsfWidth, straylightWidthWord);
    storePsfSize(straylightPsfHeight, straylightHeightWord);
    run[straylightPoints] = VANTRIC_STRAYLIGHT_POINTS;
    if (countField != nullptr) {
        *countField = VANTRIC_STRAYLIGHT_POINTS;
    }
    return VANTRIC_OK;
}

// Words of a wiggling block: header, then n of third, n of first, n of second.
std::uint32_t checkWiggling(const void* /*source*/, std::uint64_t sourceSize, void* destination,
                            std::uint64_t /*destinationSize*/, std::uint8_t* countField) {
    const std::uint64_t words = sourceSize / sizeof(std::uint32_t);
    if (words < 2 || (words - 1) % 3 != 0) {
        return VANTRIC_ERR_INVALID_DATA;
    }
    const auto* table = static_cast<const VantricWigglingTable*>(destination);
    const auto n = static_cast<std::uint8_t>((words - 1) / 3);
    if (table == nullptr || n > std::min<int>(table->capacity, VANTRIC_WIGGLING_ENTRIES)) {
        return VANTRIC_ERR_BUFFER_TOO_SMALL;
    }
    if (countField != nullptr) {
        *countField = n;
    }
    return VANTRIC_OK;
}

std::uint32_t copyWiggling(const void* source, std::uint64_t sourceSize, void* destination,
                           std::uint64_t destinationSize, std::uint8_t* countField) {
    auto* table = static_cast<VantricWigglingTable*>(destination);
    std::uint8_t n = 0;
    const std::uint32_t status = checkWiggling(source, sourceSize, table, destinationSize, &n);
    if (status != VANTRIC_OK) {
        return status;
    }
    if (table->first == nullptr || table->second == nullptr || table->third == nullptr) {
        return VANTRIC_ERR_BUFFER_TOO_SMALL;
    }
    table->header = wordAt(source, 0);
    for (std::uint8_t i = 0; i < n; ++i) {
        table->third[i] = floatAt(source, 1U + i);
        table->first[i] = floatAt(source, 1U + n + i);
        table->second[i] = truncateSaturating(floatAt(source, 1U + 2U * n + i));
    }
    if (countField != nullptr) {
        *countField = n;
    }
    return VANTRIC_OK;
}

bool isOwnCopyFunction(RXCopyFunction copy) {
    static constexpr std::array<RXCopyFunction, 6> own = {
        copyString, copyWiggling, checkWiggling, copyMask, convertAndCopyDate, copyStraylight};
    return std::find(own.begin(), own.end(), copy) != own.end();
}

}  // namespace vantric
