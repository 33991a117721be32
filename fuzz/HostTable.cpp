#include "HostTable.h"

#include <algorithm>
#include <cstring>

namespace fuzz {

namespace {

std::uint64_t g_scratchSize = 0;  // of the read to come: what a copy function may look at

// As many bytes as both sides have, also those behind the block in the scratch, and zeros.
std::uint32_t copyBytes(const void* source, std::uint64_t sourceSize, void* destination,
                        std::uint64_t destinationSize, std::uint8_t* countField) {
    if (destination == nullptr) {
        return VANTRIC_ERR_BUFFER_TOO_SMALL;  // memory ran out when the record was made
    }
    require(sourceSize <= g_scratchSize, "a block lies in the scratch");
    const std::uint64_t copied = std::min(g_scratchSize, destinationSize);
    std::memset(destination, 0, destinationSize);
    std::memcpy(destination, source, copied);
    if (countField != nullptr) {
        *countField = static_cast<std::uint8_t>(copied / sizeof(float));
    }
    return VANTRIC_OK;
}

// The library's own copy functions, called by those of the host.
std::array<RXCopyFunction, 256> g_ownFunctions = {};

template <std::uint8_t id>
std::uint32_t callOwn(const void* source, std::uint64_t sourceSize, void* destination,
                      std::uint64_t destinationSize, std::uint8_t* countField) {
    return g_ownFunctions[id](source, sourceSize, destination, destinationSize, countField);
}

RXCopyFunction wrapped(const RXTableEntry& entry) {
    g_ownFunctions[entry.id] = entry.copy;
    switch (entry.id) {
        case RX_BLOCK_MASK:
            return callOwn<RX_BLOCK_MASK>;
        case RX_BLOCK_DATE:
            return callOwn<RX_BLOCK_DATE>;
        case RX_BLOCK_TEXT1:
            return callOwn<RX_BLOCK_TEXT1>;
        case RX_BLOCK_STRAYLIGHT:
            return callOwn<RX_BLOCK_STRAYLIGHT>;
        default:
            return entry.copy;
    }
}

// Whether the destination takes any bytes: all do but the straylight's and the wiggling tables.
bool takesAnyBytes(std::uint8_t id) {
    const unsigned block =
        id < RX_BLOCK_FIRST_FREQUENCY
            ? 0
            : (id - unsigned{RX_BLOCK_FIRST_FREQUENCY}) % RX_BLOCKS_PER_FREQUENCY;
    return id != RX_BLOCK_STRAYLIGHT && block != RX_FREQUENCY_WIGGLING_A &&
           block != RX_FREQUENCY_WIGGLING_B;
}

}  // namespace

HostTable::HostTable(VantricCalibration& record, std::uint64_t pixels, Input& input) {
    const vantric::TableOwner own(vantric_createTessalyTable(&record, pixels));
    if (own == nullptr) {
        return;
    }
    g_scratchSize = pixels * sizeof(float);
    constexpr std::array<std::uint64_t, 4> strides = {1, 65, 5, 3};  // 3 leaves entries out
    const std::uint64_t stride = strides[input.between(0, 3)];
    const std::uint64_t entries = input.between(1, 80);
    const std::uint64_t expectationSize = input.between(0, 4);  // with up to 12 bytes of a host
    table_.reset(vantric_createTable(
        entries, expectationSize == 0 ? 0 : sizeof(RXBlockExpectation) + 4 * expectationSize - 4));
    table_->context = &record;
    setCallbacks(*own, input);
    const unsigned firstChange = input.byte();
    const unsigned changes = input.between(0, 4);
    for (std::uint64_t i = 0; i < entries; ++i) {
        const RXTableEntry& entry = own->entries[i * stride % own->count];
        const bool isChanged = i - firstChange % entries < changes;
        add(isChanged ? changed(entry, input) : entry);
    }
}

void HostTable::setCallbacks(const RXBlockTable& own, Input& input) {
    table_->firstCustomBlockId = input.flag() ? own.firstCustomBlockId : input.byte();
    table_->isFrequencyBlock = own.isFrequencyBlock;
    table_->validateBlock = own.validateBlock;
    table_->validateWholeCalibration = own.validateWholeCalibration;
    if (input.flag()) {
        table_->isFrequencyBlock = [](auto*) { return 0; };
    }
    if (input.flag()) {
        table_->validateBlock = [](auto*, auto*) { return VANTRIC_OK; };
    }
    if (input.flag()) {
        table_->validateWholeCalibration = [](auto* table, auto* result) {
            result->failedBlockId = 7;
            return table->count % 2 == 0 ? VANTRIC_OK : VANTRIC_WARN_PARTIAL;
        };
    }
}

RXTableEntry HostTable::changed(const RXTableEntry& entry, Input& input) {
    RXTableEntry out = entry;
    const bool anyBytes = takesAnyBytes(entry.id);
    switch (input.between(0, 7)) {
        case 0:
            out.copy = wrapped(entry);
            break;
        case 1:
            out.copy = anyBytes ? copyBytes : entry.copy;
            break;
        case 2:
            out.copy = anyBytes ? nullptr : entry.copy;
            break;
        case 3:
            out.countField = nullptr;
            break;
        case 4:
            out.expectation = nullptr;
            break;
        case 5:
            out.id = input.byte();
            break;
        case 6:
            out.expectedCount = input.byte() - 4;
            break;
        default:
            if (anyBytes && placesUsed_ < places_.size()) {
                Bytes& place = places_[placesUsed_++];
                place = Bytes(1 + input.byte() * 2U);
                out.destination = place.data();
                out.destinationSize = place.size();
                out.countField = nullptr;
                out.copy = input.flag() ? copyBytes : nullptr;
            }
            break;
    }
    return out;
}

void HostTable::add(const RXTableEntry& entry) {
    // The library's own expectation, in front of whatever the host keeps behind it.
    std::array<RXBlockExpectation, 2> expectation = {};
    const bool expects = entry.expectation != nullptr && table_->expectationSize != 0;
    if (expects) {
        expectation[0] = *entry.expectation;
    }
    static_cast<void>(vantric_addRXTableEntry(
        entry.id, entry.destination, entry.destinationSize, entry.countField, entry.expectedCount,
        entry.copy, expects ? expectation.data() : nullptr, table_.get()));
}

}  // namespace fuzz
