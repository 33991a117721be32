// Smallest and largest value of a block.
#pragma once

#include <cstdint>
#include <optional>

#include "calcut/vantric_rx.h"
#include "tools/dump/Dump.h"

namespace calcut::tools {

/// A double holds each integer and float of the format exactly.
struct ValueRange {
    double low = 0.0;
    double high = 0.0;
    bool whole = false;           ///< the block holds integers
    std::uint64_t finite = 0;     ///< values that low and high speak of
    std::uint64_t notFinite = 0;  ///< infinities, left out of the range
};

/// The range of a block's decoded values; none for a payload that is empty, incomplete or not
/// decodable. bytes has the payload at the offset.
std::optional<ValueRange> rangeOf(ByteView bytes, std::uint64_t offset, const RXBlockHeader& block);

}  // namespace calcut::tools
