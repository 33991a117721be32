#pragma once

// The generic block table; declared in the public header.
#include <cstdint>

#include "calcut/vantric_rx.h"

namespace vantric {

// Coding of RXTableEntry::expectedCount; what is left means pixels x (code - lastLiteralCount).
constexpr std::int32_t anyCount = -1;  // as every negative code
constexpr std::int32_t perPixelCount = 0;
constexpr std::int32_t firstLiteralCount = 2;
constexpr std::int32_t lastLiteralCount = 249;

/// Whether an entry's expectation is of this library's kind; a host's may be smaller.
bool hasExpectation(const RXBlockTable& table, const RXTableEntry& entry);

/// Elements that a block must have at least, compared as signed numbers.
std::int32_t minimumCount(std::int32_t expectedCount, std::uint64_t numPixels);

}  // namespace vantric
