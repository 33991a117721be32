#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <type_traits>

#include <nlohmann/json.hpp>

#include "calibration/packed/Block.h"
#include "tools/inspect/Tree.h"

namespace calcut::tools {

namespace {

template <typename Value>
Json rangeOf(const std::vector<std::uint8_t>& decoded) {
    Value low = std::numeric_limits<Value>::max();
    Value high = std::numeric_limits<Value>::lowest();
    std::uint64_t infinite = 0;
    for (std::size_t at = 0; at + sizeof(Value) <= decoded.size(); at += sizeof(Value)) {
        Value value{};
        std::memcpy(&value, decoded.data() + at, sizeof value);
        if (std::is_floating_point_v<Value> && !std::isfinite(static_cast<float>(value))) {
            ++infinite;
            continue;
        }
        low = std::min(low, value);
        high = std::max(high, value);
    }
    Json tree;
    tree["min"] = low <= high ? Json(low) : Json(nullptr);
    tree["max"] = low <= high ? Json(high) : Json(nullptr);
    tree["infinite"] = infinite;
    return tree;
}

}  // namespace

Json rangeTree(const Diagnosis& about, const vantric::BlockSighting& sighting) {
    // The largest per-pixel table of a 65-megapixel sensor fits; only a file made to exhaust memory
    // does not.
    constexpr std::uint64_t maxDecodedBytes = std::uint64_t{1} << 28;
    const RXBlockHeader& block = sighting.header;
    const std::uint64_t size = vantric_getRXUnpackedBlockSize(&block);
    if (size == 0 || size > maxDecodedBytes || sighting.payloadSize > about.payload.size()) {
        return nullptr;
    }
    std::vector<std::uint8_t> decoded(size);
    VantricStream stream = vantric_createStreamFromData(about.payload.data(), about.payload.size());
    stream.position = sighting.payloadOffset - about.payloadOffset;
    // The size of the scratch is asked for, its content is not used.
    constexpr std::uint64_t anyScratch = std::numeric_limits<std::uint64_t>::max();
    if (vantric::decodeBlock(stream, block, anyScratch, decoded.data(), size).refused()) {
        return nullptr;
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
