#include <algorithm>
#include <cstring>

#include "calcut/vantric.h"
#include "calibration/calibration.h"

using namespace vantric;

namespace {

constexpr std::uint32_t builtInFields = VANTRIC_FIELD_ID_CODES + 1;

struct BuiltIn {
    const void* source;
    std::uint32_t size;  ///< 0: the field holds no value
};

BuiltIn textField(const char* text) {
    const auto length = static_cast<std::uint32_t>(::strnlen(text, VANTRIC_TEXT_BYTES - 1));
    return {text, length == 0 ? 0 : length + 1};
}

BuiltIn idBytesField(const VantricCalibration& record) {
    // A failed read can leave a count above the capacity.
    const std::uint32_t size = std::min<std::uint32_t>(record.idBytesSize, VANTRIC_ID_BYTES);
    const bool isSet = std::any_of(record.idBytes, record.idBytes + size,
                                   [](std::uint8_t byte) { return byte != 0; });
    return {record.idBytes, isSet ? size : 0};
}

BuiltIn lensField(const VantricCalibration& record) {
    const std::uint32_t count =
        record.lensParameters == nullptr
            ? 0
            : std::min<std::uint32_t>(record.lensParameterCount, VANTRIC_LENS_PARAMETERS);
    return {record.lensParameters, count * static_cast<std::uint32_t>(sizeof(float))};
}

BuiltIn idCodesField(const VantricCalibration& record) {
    const bool isSet = vantric_validUnit16Field(record.idCode0) != 0 ||
                       vantric_validUnit16Field(record.idCode1) != 0;
    return {&record.idCode0, isSet ? 4U : 0U};
}

BuiltIn builtInField(std::uint32_t fieldId, const VantricCalibration& record) {
    switch (fieldId) {
        case VANTRIC_FIELD_LENS_PARAMETERS:
            return lensField(record);
        case VANTRIC_FIELD_TEXT1:
            return textField(record.text1);
        case VANTRIC_FIELD_TEXT2:
            return textField(record.text2);
        case VANTRIC_FIELD_IMAGER_AREA:
            return {&record.imagerArea, sizeof record.imagerArea};
        case VANTRIC_FIELD_ID_BYTES:
            return idBytesField(record);
        default:
            return idCodesField(record);
    }
}

// The custom field with that id, or null. Ids are compared as signed numbers.
const VantricCustomField* customField(std::uint32_t fieldId, const VantricCalibration& record) {
    const std::int64_t index =
        std::int64_t{static_cast<std::int32_t>(fieldId)} - record.firstCustomFieldId;
    return index >= 0 && index < customFieldsInUse(record) ? record.customFields + index : nullptr;
}

bool usable(const VantricCalibration* record) {
    return record != nullptr && record->version == recordVersion;
}

std::uint32_t copyCustomField(const VantricCustomField& field, std::uint32_t size,
                              void* destination) {
    if (field.data == nullptr) {
        return VANTRIC_ERR_FIELD_NOT_READ;
    }
    // size is the built-in one where a custom id hides a built-in id.
    const std::uint32_t present = std::min<std::uint32_t>(size, field.size);
    std::memcpy(destination, field.data, present);
    std::memset(static_cast<std::uint8_t*>(destination) + present, 0, size - present);
    return VANTRIC_OK;
}

}  // namespace

uint32_t vantric_getNumCustomFields(const VantricCalibration* record) {
    return record->customFieldCount;
}

int32_t vantric_getFieldSize(uint32_t fieldId, const VantricCalibration* record) {
    if (!usable(record)) {
        return static_cast<std::int32_t>(VANTRIC_ERR_INVALID_ARGUMENT);
    }
    if (fieldId == VANTRIC_FIELD_LENS_PARAMETERS) {
        return static_cast<std::int32_t>(lensField(*record).size);  // never empty
    }
    if (fieldId < builtInFields) {
        const std::uint32_t size = builtInField(fieldId, *record).size;
        return static_cast<std::int32_t>(size == 0 ? VANTRIC_ERR_FIELD_EMPTY : size);
    }
    const VantricCustomField* field = customField(fieldId, *record);
    return field == nullptr ? static_cast<std::int32_t>(VANTRIC_ERR_UNKNOWN_FIELD) : field->size;
}

uint32_t vantric_getField(uint32_t fieldId, const VantricCalibration* record, void* destination) {
    const std::int32_t size = vantric_getFieldSize(fieldId, record);
    if (size < 1) {
        return static_cast<std::uint32_t>(size);
    }
    const auto bytes = static_cast<std::uint32_t>(size);
    if (const VantricCustomField* field = customField(fieldId, *record); field != nullptr) {
        return copyCustomField(*field, bytes, destination);
    }
    // It has a size and is not custom, so it is built in.
    std::memcpy(destination, builtInField(fieldId, *record).source, bytes);
    return VANTRIC_OK;
}
