#include "calibration/calibration.h"

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <limits>

#include "calibration/memory.h"

namespace vantric {

namespace {

constexpr std::uint16_t defaultCalibrationType = 2;
constexpr std::uint16_t unset16 = 0xFFFF;
constexpr std::uint32_t unset32 = 0xFFFFFFFFU;
constexpr std::uint8_t noCustomFieldId = 255;

// The floats from straylightScale to straylightCentre are contiguous.
constexpr std::size_t straylightFloats = 32;
static_assert(offsetof(VantricCalibration, straylightCentre) -
                  offsetof(VantricCalibration, straylightScale) ==
              (straylightFloats - 1) * sizeof(float));

// Zero-filled, so the text is terminated from the start.
char* allocateText() {
    return orAbort(allocateZeroed<char>(VANTRIC_TEXT_BYTES));
}

void allocateWiggling(VantricWigglingTable& table) {
    table.first = allocateZeroedArray<float, VANTRIC_WIGGLING_ENTRIES>();
    table.second = allocateZeroedArray<std::uint32_t, VANTRIC_WIGGLING_ENTRIES>();
    table.third = allocateZeroedArray<float, VANTRIC_WIGGLING_ENTRIES>();
}

void initialiseFrequency(VantricFrequencyRecord& frequency, Wanted wanted) {
    frequency.countA = VANTRIC_FREQUENCY_VALUES;
    frequency.countB = VANTRIC_FREQUENCY_VALUES;
    frequency.scalar = std::numeric_limits<float>::quiet_NaN();
    frequency.wigglingA.capacity = VANTRIC_WIGGLING_ENTRIES;
    frequency.wigglingB.capacity = VANTRIC_WIGGLING_ENTRIES;
    if (wanted == Wanted::cut) {
        return;  // 64 allocations would be half of a small cut
    }
    frequency.valuesA = allocateZeroedArray<float, VANTRIC_FREQUENCY_VALUES>();
    frequency.valuesB = allocateZeroedArray<float, VANTRIC_FREQUENCY_VALUES>();
    allocateWiggling(frequency.wigglingA);
    allocateWiggling(frequency.wigglingB);
}

void allocatePixels(VantricCalibration& record, std::uint32_t numPixels, Wanted wanted) {
    record.pixelMask = allocateZeroed<std::uint8_t>(numPixels);
    if (wanted != Wanted::everything) {
        return;
    }
    record.pixelValues = allocateZeroed<float>(numPixels);
    for (int k = 0; record.frequencies != nullptr && k < VANTRIC_FREQUENCIES; ++k) {
        record.frequencies[k].pixelTable = allocateZeroed<float>(numPixels);
    }
}

void releaseWiggling(const VantricWigglingTable& table) {
    std::free(table.first);
    std::free(table.second);
    std::free(table.third);
}

void releaseFrequency(const VantricFrequencyRecord& frequency) {
    std::free(frequency.pixelTable);
    std::free(frequency.valuesB);
    std::free(frequency.valuesA);
    releaseWiggling(frequency.wigglingB);
    releaseWiggling(frequency.wigglingA);
}

void copyWigglingTable(VantricWigglingTable& to, const VantricWigglingTable& from) {
    to.header = from.header;
    to.capacity = from.capacity;
    const std::uint64_t entries = std::min<std::uint64_t>(from.capacity, VANTRIC_WIGGLING_ENTRIES);
    copyElements(to.first, from.first, entries);
    copyElements(to.third, from.third, entries);
    copyElements(to.second, from.second, entries);
}

void copyFrequency(VantricFrequencyRecord& to, const VantricFrequencyRecord& from,
                   std::uint64_t numPixels) {
    to.frequencyId = from.frequencyId;
    to.scalar = from.scalar;
    copyElements(to.pixelTable, from.pixelTable, numPixels);
    copyElements(to.valuesB, from.valuesB, VANTRIC_FREQUENCY_VALUES);
    copyElements(to.valuesA, from.valuesA, VANTRIC_FREQUENCY_VALUES);
    copyWigglingTable(to.wigglingA, from.wigglingA);
    copyWigglingTable(to.wigglingB, from.wigglingB);
}

void copyFrequencies(VantricCalibration& to, const VantricCalibration& from,
                     std::uint64_t numPixels) {
    to.frequencyCount = from.frequencyCount;
    if (to.frequencies == nullptr || from.frequencies == nullptr) {
        return;
    }
    const int count = std::min<int>(from.frequencyCount, VANTRIC_FREQUENCIES);
    for (int k = 0; k < count; ++k) {
        copyFrequency(to.frequencies[k], from.frequencies[k], numPixels);
    }
}

void copyCustomFields(VantricCalibration& to, const VantricCalibration& from) {
    to.customFieldCount = from.customFieldCount;
    const std::uint32_t count = customFieldsInUse(from);
    for (std::uint32_t k = 0; k < count; ++k) {
        const VantricCustomField& field = from.customFields[k];
        to.customFields[k].size = field.size;
        if (field.data != nullptr) {
            to.customFields[k].data = allocate<std::uint8_t>(field.size);
            copyElements(to.customFields[k].data, field.data, field.size);
        }
    }
    // firstCustomFieldId deliberately stays 255 in a copy.
    to.customFieldReserved = from.customFieldReserved;
}

bool hasPsfSize(const VantricCalibration& record) {
    return record.psfWidth != unset32 && record.psfHeight != unset32;
}

float* copyOfFloats(const float* values, std::uint64_t count) {
    float* copy = values == nullptr ? nullptr : allocate<float>(count);
    copyElements(copy, values, count);
    return copy;
}

// Allocates at least room floats: the caller's values, then zeros.
std::uint32_t adopt(float*& place, const float* values, std::uint64_t count, std::uint64_t room) {
    if (place != nullptr) {
        return VANTRIC_ERR_ALREADY_SET;
    }
    place = allocateZeroed<float>(std::max(count, room));
    copyElements(place, values, count);
    return place == nullptr ? VANTRIC_ERR_BUFFER_TOO_SMALL : VANTRIC_OK;
}

}  // namespace

VantricCalibration* allocateCalibration(std::uint32_t numPixels, Wanted wanted) {
    constexpr float nan = std::numeric_limits<float>::quiet_NaN();
    auto* record = orAbort(allocateZeroed<VantricCalibration>(1));
    record->version = recordVersion;
    record->calibrationType = defaultCalibrationType;
    record->text0 = allocateText();
    record->text1 = allocateText();
    record->text2 = allocateText();
    record->idBytes = orAbort(allocateZeroed<std::uint8_t>(VANTRIC_ID_BYTES));
    record->idBytesSize = VANTRIC_ID_BYTES;
    record->lensParameterCount = VANTRIC_LENS_PARAMETERS;
    record->lensParameters = allocateZeroed<float>(VANTRIC_LENS_PARAMETERS);
    record->idCode0 = unset16;
    record->idCode1 = unset16;
    record->straylightScale = nan;
    std::fill(std::begin(record->straylightRadius), std::end(record->straylightRadius), nan);
    std::fill(std::begin(record->straylightValue), std::end(record->straylightValue), nan);
    record->straylightExponent = nan;
    record->straylightOffset = nan;
    record->straylightCentre = nan;
    record->psfWidth = unset32;
    record->psfHeight = unset32;
    record->auxFlag = 1;
    record->frequencyCount = VANTRIC_FREQUENCIES;
    record->customFieldCount = VANTRIC_CUSTOM_FIELDS;
    record->customFields = orAbort(allocateZeroed<VantricCustomField>(VANTRIC_CUSTOM_FIELDS));
    record->firstCustomFieldId = noCustomFieldId;
    record->frequencies = allocateZeroed<VantricFrequencyRecord>(VANTRIC_FREQUENCIES);
    for (int k = 0; record->frequencies != nullptr && k < VANTRIC_FREQUENCIES; ++k) {
        initialiseFrequency(record->frequencies[k], wanted);
    }
    allocatePixels(*record, numPixels, wanted);
    return record;
}

std::uint64_t pixelsOf(const VantricImagerArea& area) {
    return std::uint64_t{area.columns} * area.rows;
}

std::uint64_t psfElementsOf(const VantricCalibration& record) {
    const std::uint64_t elements = std::uint64_t{record.psfWidth} * record.psfHeight;
    if (elements == 0) {
        return 1;  // even if the other size is unset
    }
    return hasPsfSize(record) && elements <= VANTRIC_MAX_PSF_ELEMENTS ? elements : 0;
}

std::uint32_t customFieldsInUse(const VantricCalibration& record) {
    return std::min<std::uint32_t>(record.customFieldCount, VANTRIC_CUSTOM_FIELDS);
}

}  // namespace vantric

using namespace vantric;

void vantric_freeCalibration(VantricCalibration* calibration) {
    if (calibration == nullptr) {
        return;
    }
    std::free(calibration->text0);
    std::free(calibration->text2);
    std::free(calibration->text1);
    std::free(calibration->idBytes);
    std::free(calibration->pixelValues);
    std::free(calibration->pixelMask);
    std::free(calibration->directions);
    std::free(calibration->lensParameters);
    std::free(calibration->psf);
    for (int k = 0; calibration->frequencies != nullptr && k < VANTRIC_FREQUENCIES; ++k) {
        releaseFrequency(calibration->frequencies[k]);
    }
    std::free(calibration->frequencies);
    const std::uint32_t customFields = customFieldsInUse(*calibration);
    for (std::uint32_t k = 0; k < customFields; ++k) {
        std::free(calibration->customFields[k].data);
    }
    std::free(calibration->customFields);
    std::free(calibration);
}

VantricCalibration* vantric_copyCalibration(const VantricCalibration* calibration) {
    if (calibration == nullptr) {
        return nullptr;
    }
    const VantricCalibration& from = *calibration;
    const std::uint32_t numPixels = from.imagerArea.columns * from.imagerArea.rows;
    VantricCalibration& to = *allocateCalibration(numPixels);
    to.version = from.version;
    to.calibrationType = from.calibrationType;
    to.imagerArea = from.imagerArea;
    copyElements(to.text0, from.text0, VANTRIC_TEXT_BYTES);
    copyElements(to.text2, from.text2, VANTRIC_TEXT_BYTES);
    copyElements(to.text1, from.text1, VANTRIC_TEXT_BYTES);
    to.idBytesSize = from.idBytesSize;
    copyElements(to.idBytes, from.idBytes, VANTRIC_ID_BYTES);
    copyElements(to.pixelValues, from.pixelValues, numPixels);
    copyElements(to.pixelMask, from.pixelMask, numPixels);
    copyElements(to.lensParameters, from.lensParameters, VANTRIC_LENS_PARAMETERS);
    to.auxFlag = from.auxFlag;
    to.idCode0 = from.idCode0;
    to.idCode1 = from.idCode1;
    to.straylightScale = from.straylightScale;
    copyElements(to.straylightRadius, from.straylightRadius, VANTRIC_STRAYLIGHT_POINTS + 1);
    copyElements(to.straylightValue, from.straylightValue, VANTRIC_STRAYLIGHT_POINTS + 1);
    to.straylightExponent = from.straylightExponent;
    to.straylightOffset = from.straylightOffset;
    to.straylightCentre = from.straylightCentre;
    to.psfWidth = from.psfWidth;
    to.psfHeight = from.psfHeight;
    to.straylightPointCount = from.straylightPointCount;
    const std::uint64_t psfElements = psfElementsOf(from);
    to.psf = psfElements == 0 ? nullptr : copyOfFloats(from.psf, psfElements);
    to.directions = copyOfFloats(from.directions, std::uint64_t{numPixels} * floatsPerDirection);
    copyFrequencies(to, from, numPixels);
    copyCustomFields(to, from);
    return &to;
}

uint32_t vantric_getCalibrationTypeFromHandle(const VantricCalibration* calibration) {
    return calibration == nullptr ? 0 : calibration->calibrationType;
}

uint32_t vantric_getStatusFromCode(uint32_t code) {
    return code;
}

uint32_t vantric_getCalibrationSize(void) {
    return VANTRIC_ERR_NOT_SUPPORTED;
}

uint32_t vantric_getTemporaryMemorySize(void) {
    return VANTRIC_ERR_NOT_SUPPORTED;
}

uint32_t vantric_addPsf(VantricCalibration* calibration, const float* values, uint32_t count) {
    return adopt(calibration->psf, values, count, psfElementsOf(*calibration));
}

uint32_t vantric_addDirections(VantricCalibration* calibration, const float* values,
                               uint32_t count) {
    return adopt(calibration->directions, values, std::uint64_t{count} * floatsPerDirection,
                 pixelsOf(calibration->imagerArea) * floatsPerDirection);
}
