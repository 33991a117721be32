#include "calibration/packed/BlockCursor.h"

namespace vantric {

Refusal BlockCursor::next() {
    offset_ = stream_.position;
    const Refusal refusal = readBlockHeader(stream_, header_, block_);
    payloadOffset_ = stream_.position;
    return refusal;
}

Refusal BlockCursor::checkOrder() {
    const auto id = static_cast<std::int32_t>(block_.id);
    const std::int32_t previousId = previousId_;
    previousId_ = id;
    return id > previousId ? Refusal{}
                           : refuse(VANTRIC_ERR_INVALID_DATA, Cause::idsNotAscending, 0,
                                    static_cast<std::uint64_t>(previousId), block_.id);
}

Refusal BlockCursor::located(Refusal refusal) const {
    switch (refusal.cause) {
        case Cause::payloadCutShort:
            refusal.offset = payloadOffset_;
            break;
        case Cause::wrongBits:
            refusal.offset =
                payloadOffset_ - bitsSize -
                (block_.kind == RX_KIND_PACKED_FLOAT ? fixedPointSize : std::uint64_t{0});
            break;
        default:
            refusal.offset = offset_ + countCodeOffset;
            break;
    }
    return refusal;
}

}  // namespace vantric
