#include <cstdint>

#include "calcut/vantric_rx.h"
#include "calibration/packed/BlockCursor.h"
#include "calibration/packed/CalibrationStream.h"

// The second walk over the blocks, which copies the custom ones.

using namespace vantric;

namespace {

// The custom field of a block, or null. A field that is not in use has size 0: no block fits.
const VantricCustomField* customFieldOf(std::uint32_t id, const VantricCalibration& record) {
    const std::uint32_t index = id - record.firstCustomFieldId;
    return index < VANTRIC_CUSTOM_FIELDS ? record.customFields + index : nullptr;
}

std::uint32_t readCustomBlock(const BlockCursor& blocks, const VantricCalibration& record) {
    const VantricCustomField* field = customFieldOf(blocks.block().id, record);
    if (field == nullptr) {
        return VANTRIC_ERR_INVALID_DATA;
    }
    return decodeBlock(blocks.stream(), blocks.block(), 0, field->data,
                       field->data == nullptr ? 0 : field->size)
        .status;
}

std::uint32_t skipBlock(const BlockCursor& blocks) {
    return FieldReader(blocks.stream()).skip(blocks.payloadSize()) ? VANTRIC_OK
                                                                   : VANTRIC_ERR_END_OF_DATA;
}

}  // namespace

uint32_t vantric_readRXCustomData(VantricStream* stream, VantricCalibration* calibration) {
    BlockCursor blocks(*stream);
    std::uint32_t status = blocks.readFileHeader().status;
    while (status == VANTRIC_OK) {
        status = blocks.next().status;
        if (status != VANTRIC_OK || blocks.atEndMarker()) {
            break;
        }
        status = blocks.checkOrder().status;
        if (status == VANTRIC_OK) {
            status = blocks.block().id >= calibration->firstCustomFieldId
                         ? readCustomBlock(blocks, *calibration)
                         : skipBlock(blocks);
        }
    }
    return status;
}
