#include <cstdint>

#include "calcut/vantric_rx.h"

// The second walk over the blocks, which copies the custom ones.

namespace {

// The custom field of a block, also one that is not in use (no block fits into it), or null.
const VantricCustomField* customFieldOf(std::uint32_t id, const VantricCalibration& record) {
    const std::uint32_t index = id - record.firstCustomFieldId;
    return index < VANTRIC_CUSTOM_FIELDS ? record.customFields + index : nullptr;
}

std::uint32_t readCustomBlock(VantricStream& stream, const RXBlockHeader& block,
                              const VantricCalibration& record) {
    const VantricCustomField* field = customFieldOf(block.id, record);
    if (field == nullptr) {
        return VANTRIC_ERR_INVALID_DATA;
    }
    return vantric_decodeRXBlock(&stream, &block, nullptr, 0, field->data,
                                 field->data == nullptr ? 0 : field->size);
}

std::uint32_t skipBlock(VantricStream& stream, const RXBlockHeader& block) {
    const std::uint64_t size = vantric_getRXPackedBlockSize(&block);
    const std::uint32_t status = vantric_canRead(&stream, size);
    stream.position += size;
    return status;
}

}  // namespace

uint32_t vantric_readRXCustomData(VantricStream* stream, VantricCalibration* calibration) {
    RXHeader header = {};
    std::uint32_t status = vantric_readRXHeader(stream, &header);
    RXBlockHeader block = {};
    std::int32_t previousId = -1;
    while (status == VANTRIC_OK) {
        status = vantric_readRXBlockHeader(stream, &header, &block);
        if (status != VANTRIC_OK || block.id == VANTRIC_RX_END_MARKER) {
            break;
        }
        const auto id = static_cast<std::int32_t>(block.id);
        if (id <= previousId) {
            return VANTRIC_ERR_INVALID_DATA;
        }
        previousId = id;
        status = block.id >= calibration->firstCustomFieldId
                     ? readCustomBlock(*stream, block, *calibration)
                     : skipBlock(*stream, block);
    }
    return status;
}
