#include "Reading.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <memory>

#include "targets.h"

namespace fuzz {

namespace {

// Reads from end to end, so that AddressSanitizer sees a buffer that is shorter than it claims.
template <class T>
void touch(const T* values, std::uint64_t count) {
    if (values == nullptr || count == 0) {
        return;
    }
    constexpr std::uint64_t stride = 16;  // finer than the distance between two heap blocks
    const auto* bytes = reinterpret_cast<const volatile std::uint8_t*>(values);
    const std::uint64_t last = count * sizeof(T) - 1;
    for (std::uint64_t i = 0; i < last; i += stride) {
        static_cast<void>(bytes[i]);
    }
    static_cast<void>(bytes[last]);
}

}  // namespace

void touchRecord(const VantricCalibration& record, std::uint64_t pixels) {
    touch(record.text0, std::strlen(record.text0) + 1);
    touch(record.text1, std::strlen(record.text1) + 1);
    touch(record.text2, std::strlen(record.text2) + 1);
    touch(record.idBytes, record.idBytesSize);
    touch(record.lensParameters, record.lensParameterCount);
    touch(record.pixelMask, pixels);
    touch(record.pixelValues, pixels);
    touch(record.directions, pixels * 3);
    touch(record.psf, std::uint64_t{record.psfWidth} * record.psfHeight);
    for (int k = 0; record.frequencies != nullptr && k < record.frequencyCount; ++k) {
        const VantricFrequencyRecord& frequency = record.frequencies[k];
        touch(frequency.pixelTable, pixels);
        touch(frequency.valuesA, frequency.countA);
        touch(frequency.valuesB, frequency.countB);
        for (const auto* table : {&frequency.wigglingA, &frequency.wigglingB}) {
            touch(table->first, table->capacity);
            touch(table->second, table->capacity);
            touch(table->third, table->capacity);
        }
    }
}

std::uint64_t imagePixels(const VantricCalibration& record) {
    return std::uint64_t{record.imagerArea.columns} * record.imagerArea.rows;
}

void touchLiveRecord(const VantricCalibration& record) {
    VantricCalibration view = record;
    const auto limit = [](std::uint8_t& count, std::uint8_t capacity) {
        count = std::min(count, capacity);
    };
    limit(view.idBytesSize, VANTRIC_ID_BYTES);
    limit(view.lensParameterCount, VANTRIC_LENS_PARAMETERS);
    // All frequencies have their buffers, in use or not.
    std::array<VantricFrequencyRecord, VANTRIC_FREQUENCIES> frequencies = {};
    if (record.frequencies != nullptr) {
        std::copy_n(record.frequencies, frequencies.size(), frequencies.begin());
    }
    for (VantricFrequencyRecord& frequency : frequencies) {
        limit(frequency.countA, VANTRIC_FREQUENCY_VALUES);
        limit(frequency.countB, VANTRIC_FREQUENCY_VALUES);
        limit(frequency.wigglingA.capacity, VANTRIC_WIGGLING_ENTRIES);
        limit(frequency.wigglingB.capacity, VANTRIC_WIGGLING_ENTRIES);
    }
    view.frequencies = frequencies.data();
    view.frequencyCount = VANTRIC_FREQUENCIES;
    const bool hasPsfSize =
        view.psfWidth != 0xFFFFFFFFU && view.psfHeight != 0xFFFFFFFFU &&
        std::uint64_t{view.psfWidth} * view.psfHeight <= VANTRIC_MAX_PSF_ELEMENTS;
    if (!hasPsfSize) {
        view.psf = nullptr;
    }
    touchRecord(view, imagePixels(record));
}

void everyField(const VantricCalibration& record, bool customRead) {
    const auto tryField = [&](std::uint32_t id) {
        const std::int32_t size = vantric_getFieldSize(id, &record);
        require(size <= 260, "no field is larger than a text or a custom block");
        const auto room = static_cast<std::size_t>(std::max(size, 0));
        const std::unique_ptr<std::uint8_t[]> value(new std::uint8_t[room]);
        const std::uint32_t status = vantric_getField(id, &record, value.get());
        if (size < 1) {
            require(status == static_cast<std::uint32_t>(size),
                    "a field without size has a status");
        } else if (status == VANTRIC_OK) {
            touch(value.get(), room);
        } else {
            require(status == VANTRIC_ERR_FIELD_NOT_READ && !customRead,
                    "only a custom field can be unread");
        }
    };
    for (std::uint32_t id = 0; id <= 260; ++id) {
        tryField(id);
    }
    for (const std::uint32_t id : {0x7FFFFFFFU, 0x80000000U, 0xFFFFFFFFU}) {
        tryField(id);
    }
}

}  // namespace fuzz
