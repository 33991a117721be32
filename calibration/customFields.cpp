#include <cstdlib>
#include <utility>

#include "calcut/vantric.h"
#include "calibration/calibration.h"
#include "calibration/memory.h"

using namespace vantric;

namespace {

// Allocates zero-filled buffers for the custom blocks: all of them, or none.
bool allocateCustomData(VantricCustomField* fields, std::uint32_t count) {
    bool complete = true;
    for (std::uint32_t k = 0; k < count; ++k) {
        // A copy for which memory was short can hold data behind a first field that has none.
        std::free(fields[k].data);
        fields[k].data = allocateZeroed<std::uint8_t>(fields[k].size);
        complete = complete && fields[k].data != nullptr;
    }
    for (std::uint32_t k = 0; !complete && k < count; ++k) {
        std::free(std::exchange(fields[k].data, nullptr));
    }
    return complete;
}

}  // namespace

uint32_t vantric_readCustomFields(const uint8_t* data, size_t size, VantricCalibration* record) {
    if (record == nullptr || record->customFields[0].data != nullptr) {
        return VANTRIC_ERR_INVALID_ARGUMENT;
    }
    // Fields are read once: the buffers stay, even if the pass fails.
    return allocateCustomData(record->customFields, customFieldsInUse(*record))
               ? vantric_dispatchReadCustomFields(data, size, record)
               : VANTRIC_ERR_BUFFER_TOO_SMALL;
}
