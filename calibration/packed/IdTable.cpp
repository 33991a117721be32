#include "calibration/packed/IdTable.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <limits>

#include "calibration/memory.h"

namespace vantric {

bool hasExpectation(const RXBlockTable& table, const RXTableEntry& entry) {
    return entry.expectation != nullptr && table.expectationSize >= sizeof(RXBlockExpectation);
}

std::int32_t minimumCount(std::int32_t expectedCount, std::uint64_t numPixels) {
    const auto pixels = static_cast<std::uint32_t>(numPixels);
    if (expectedCount < 0) {
        return std::numeric_limits<std::int32_t>::min();
    }
    if (expectedCount == perPixelCount) {
        return static_cast<std::int32_t>(pixels);
    }
    if (expectedCount >= firstLiteralCount && expectedCount <= lastLiteralCount) {
        return expectedCount;
    }
    return static_cast<std::int32_t>(std::uint64_t{pixels} *
                                     static_cast<std::uint32_t>(expectedCount - lastLiteralCount));
}

}  // namespace vantric

using namespace vantric;

RXBlockTable* vantric_createTable(uint64_t capacity, uint64_t expectationSize) {
    if (capacity == 0) {
        return nullptr;
    }
    auto* table = orAbort(allocateZeroed<RXBlockTable>(1));
    table->capacity = capacity;
    table->entries = allocateZeroed<RXTableEntry>(capacity);
    table->expectationSize = expectationSize;
    if (expectationSize != 0 &&
        capacity <= std::numeric_limits<std::uint64_t>::max() / expectationSize) {
        table->expectations = allocateZeroed<std::uint8_t>(capacity * expectationSize);
    }
    return table;
}

uint32_t vantric_addRXTableEntry(uint8_t id, void* destination, uint64_t destinationSize,
                                 uint8_t* countField, int32_t expectedCount, RXCopyFunction copy,
                                 const void* expectationTemplate, RXBlockTable* table) {
    if (table->count >= table->capacity || table->entries == nullptr) {
        return VANTRIC_ERR_BUFFER_TOO_SMALL;
    }
    std::uint8_t* expectation = nullptr;
    if (expectationTemplate != nullptr) {
        if (table->expectations == nullptr) {
            return VANTRIC_ERR_INVALID_ARGUMENT;
        }
        expectation = table->expectations + table->count * table->expectationSize;
        std::memcpy(expectation, expectationTemplate, table->expectationSize);
    }
    table->entries[table->count] = {id,
                                    destination,
                                    destinationSize,
                                    countField,
                                    expectedCount,
                                    copy,
                                    reinterpret_cast<RXBlockExpectation*>(expectation)};
    ++table->count;
    return VANTRIC_OK;
}

RXTableEntry* vantric_findRXTableEntry(uint8_t id, const RXBlockTable* table) {
    RXTableEntry* end = table->entries + table->count;
    RXTableEntry* found = std::find_if(table->entries, end,
                                       [&](const RXTableEntry& entry) { return entry.id == id; });
    return found == end ? nullptr : found;
}

void vantric_freeRXTable(RXBlockTable* table) {
    if (table == nullptr) {
        return;
    }
    std::free(table->entries);
    std::free(table->expectations);
    std::free(table);
}
