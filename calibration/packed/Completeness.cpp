#include "calibration/packed/Completeness.h"

#include <array>

#include "calibration/packed/IdTable.h"

namespace vantric {

namespace {

constexpr std::uint32_t frequencyBlocks = VANTRIC_FREQUENCIES * RX_BLOCKS_PER_FREQUENCY;

bool isFrequencyId(std::uint32_t id) {
    return id >= RX_BLOCK_FIRST_FREQUENCY && id < RX_BLOCK_FIRST_FREQUENCY + frequencyBlocks &&
           (id - RX_BLOCK_FIRST_FREQUENCY) % RX_BLOCKS_PER_FREQUENCY == RX_FREQUENCY_ID;
}

// The blocks that are still missing of each frequency.
class PendingBlocks {
  public:
    /// Notes a block that was found; false if the first block of its frequency was not.
    bool note(std::uint32_t id) {
        if (id < RX_BLOCK_FIRST_FREQUENCY || id >= RX_BLOCK_FIRST_FREQUENCY + frequencyBlocks) {
            return true;
        }
        const std::uint32_t index = id - RX_BLOCK_FIRST_FREQUENCY;
        const std::uint32_t row = index - index % RX_BLOCKS_PER_FREQUENCY;
        if (index == row) {
            for (std::uint32_t block = 0; block < RX_BLOCKS_PER_FREQUENCY; ++block) {
                pending_[row + block] = block != RX_FREQUENCY_SCALAR;
            }
            return true;
        }
        const bool frequencyKnown = pending_[row];
        pending_[index] = false;
        return frequencyKnown;
    }

    /// The highest id still missing, or 0.
    [[nodiscard]] std::uint32_t lastMissing() const {
        for (std::uint32_t end = frequencyBlocks; end > 0; --end) {
            const std::uint32_t index = end - 1;
            if (pending_[index] && index % RX_BLOCKS_PER_FREQUENCY != RX_FREQUENCY_ID) {
                return RX_BLOCK_FIRST_FREQUENCY + index;
            }
        }
        return 0;
    }

  private:
    std::array<bool, frequencyBlocks> pending_{};
};

std::uint32_t statusOfFound(const RXTableEntry& entry, const VantricCalibration& record) {
    const RXBlockExpectation& expectation = *entry.expectation;
    if (expectation.status != VANTRIC_OK || expectation.required != 0) {
        return expectation.status;
    }
    const bool unset =
        (entry.id == RX_BLOCK_ID_CODES && vantric_validUnit16Field(record.idCode0) == 0) ||
        (entry.id == RX_BLOCK_STRAYLIGHT && vantric_validFloatField(record.straylightScale) == 0);
    return unset ? VANTRIC_ERR_VALUE_UNSET : VANTRIC_OK;
}

std::uint32_t validateEntry(const RXTableEntry& entry, const VantricCalibration& record,
                            PendingBlocks& pending) {
    const RXBlockExpectation* expectation = entry.expectation;
    if (expectation == nullptr) {
        return VANTRIC_OK;
    }
    if (expectation->seen == 0) {
        if (expectation->required == 0) {
            return VANTRIC_OK;
        }
        return expectation->status != VANTRIC_OK ? expectation->status : VANTRIC_ERR_FIELD_EMPTY;
    }
    const std::uint32_t status = statusOfFound(entry, record);
    return pending.note(entry.id) ? status : VANTRIC_ERR_FIELD_EMPTY;
}

}  // namespace

int isFrequencyBlock(const RXBlockHeader* block) {
    return isFrequencyId(block->id) ? 1 : 0;
}

std::uint32_t validateBlock(const RXBlockHeader* block, RXBlockExpectation* expectation) {
    if (expectation == nullptr) {
        return VANTRIC_OK;
    }
    ++expectation->seen;
    if (block->kind != expectation->kindA && block->kind != expectation->kindB) {
        expectation->status = VANTRIC_ERR_INVALID_DATA;
    }
    return expectation->status;
}

std::uint32_t validateWholeCalibration(const RXBlockTable* table, RXReadResult* result) {
    PendingBlocks pending;
    std::uint32_t status = VANTRIC_OK;
    std::uint32_t id = 0;
    for (std::uint64_t i = 0; i < table->count && status == VANTRIC_OK; ++i) {
        id = table->entries[i].id;
        status = validateEntry(table->entries[i], *table->context, pending);
    }
    // Looked at last: a missing required block is reported with its own id above.
    const std::uint32_t missing = status == VANTRIC_OK ? pending.lastMissing() : 0;
    if (missing != 0) {
        status = VANTRIC_ERR_FIELD_EMPTY;
        id = missing;
    }
    if (result != nullptr && status != VANTRIC_OK) {
        *result = {status, id};
    }
    return status;
}

Refusal refusalOfWhole(const RXBlockTable& table, const RXReadResult& result,
                       std::uint64_t offset) {
    const auto [status, id] = result;
    const RXTableEntry* entry = vantric_findRXTableEntry(static_cast<std::uint8_t>(id), &table);
    const bool known = entry != nullptr && hasExpectation(table, *entry);
    Refusal refusal = {status, Cause::incomplete, offset, 0, 0, 0};
    if (known && status == VANTRIC_ERR_VALUE_UNSET) {
        refusal.cause = Cause::valueUnset;
    } else if (known && status == VANTRIC_ERR_FIELD_EMPTY && entry->expectation->seen == 0) {
        refusal.cause = Cause::missingBlock;
    } else if (known && status == VANTRIC_ERR_FIELD_EMPTY) {
        const std::uint32_t block = (id - RX_BLOCK_FIRST_FREQUENCY) % RX_BLOCKS_PER_FREQUENCY;
        refusal = refusedFor(status, Cause::withoutFrequency, offset, id - block, id);
    }
    return refusal;
}

}  // namespace vantric
