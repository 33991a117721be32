#include "tools/inspect/ValueRange.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <type_traits>
#include <vector>

#include "calibration/packed/Block.h"

namespace calcut::tools {

namespace {

/// Blocks that decode to more than this have no range. The largest per-pixel table of a
/// 65-megapixel sensor fits; only a file made to exhaust memory does not.
constexpr std::uint64_t maxDecodedBytes = std::uint64_t{1} << 28;

template <typename Value>
ValueRange rangeOf(const std::vector<std::uint8_t>& decoded) {
    ValueRange range;
    range.whole = !std::is_floating_point_v<Value>;
    range.low = std::numeric_limits<double>::infinity();
    range.high = -range.low;
    for (std::size_t at = 0; at + sizeof(Value) <= decoded.size(); at += sizeof(Value)) {
        Value value{};
        std::memcpy(&value, decoded.data() + at, sizeof value);
        const auto wide = static_cast<double>(value);
        if (!std::isfinite(wide)) {
            ++range.notFinite;
            continue;
        }
        ++range.finite;
        range.low = std::min(range.low, wide);
        range.high = std::max(range.high, wide);
    }
    return range;
}

}  // namespace

std::optional<ValueRange> rangeOf(ByteView bytes, std::uint64_t offset,
                                  const RXBlockHeader& block) {
    const std::uint64_t size = vantric_getRXUnpackedBlockSize(&block);
    if (size == 0 || size > maxDecodedBytes ||
        vantric_getRXPackedBlockSize(&block) > bytes.size()) {
        return std::nullopt;
    }
    std::vector<std::uint8_t> decoded(size);
    VantricStream stream = vantric_createStreamFromData(bytes.data(), bytes.size());
    stream.position = offset;
    // The size of the scratch is asked for, its content is not used.
    if (vantric::decodeBlock(stream, block, std::numeric_limits<std::uint64_t>::max(),
                             decoded.data(), decoded.size())
            .refused()) {
        return std::nullopt;
    }
    switch (block.kind) {
        case RX_KIND_RAW:
            return rangeOf<std::uint8_t>(decoded);
        case RX_KIND_UINT16:
            return rangeOf<std::uint16_t>(decoded);
        case RX_KIND_INT32:
            return rangeOf<std::int32_t>(decoded);
        case RX_KIND_FLOAT:
        case RX_KIND_PACKED_FLOAT:
            return rangeOf<float>(decoded);
        default:
            return rangeOf<std::uint32_t>(decoded);
    }
}

}  // namespace calcut::tools
