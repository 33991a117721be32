#pragma once

// The generic block table; declared in the public header.
#include <cstdint>

#include "calcut/vantric_rx.h"

namespace vantric {

// Codes of RXTableEntry::expectedCount. All others mean pixels x (code - lastLiteralCount).
constexpr std::int32_t anyCount = -1;  // every negative code does
constexpr std::int32_t perPixelCount = 0;
constexpr std::int32_t firstLiteralCount = 2;
constexpr std::int32_t lastLiteralCount = 249;

/// Whether an entry has an expectation that is large enough to be this library's.
bool hasExpectation(const RXBlockTable& table, const RXTableEntry& entry);

/// Elements that a block must have at least; to be compared as signed numbers.
std::int32_t minimumCount(std::int32_t expectedCount, std::uint64_t numPixels);

}  // namespace vantric
