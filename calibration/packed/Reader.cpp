#include "calibration/packed/Reader.h"

#include <array>
#include <cstdint>

#include "calibration/owners.h"
#include "calibration/packed/BlockCursor.h"
#include "calibration/packed/Completeness.h"
#include "calibration/packed/CustomBlocks.h"
#include "calibration/packed/RecordFiller.h"
#include "calibration/packed/Teller.h"

namespace vantric {

namespace {

// The first entry of each id.
class EntryIndex {
  public:
    explicit EntryIndex(const RXBlockTable& table) {
        for (std::uint64_t end = table.count; end > 0; --end) {
            const RXTableEntry& entry = table.entries[end - 1];
            entries_[entry.id] = &entry;
        }
    }

    [[nodiscard]] const RXTableEntry* find(std::uint32_t id) const { return entries_[id]; }

  private:
    std::array<const RXTableEntry*, VANTRIC_RX_END_MARKER + 1> entries_ = {};
};

// The walk that fills a record. It starts behind the file header.
class Walk {
  public:
    Walk(BlockCursor& blocks, const RXBlockTable& table, const Teller& tell)
        : blocks_(blocks), table_(table), entries_(table), filler_(table), tell_(tell) {}

    RXReadResult run() {
        Refusal refusal = filler_.begin(blocks_);
        while (!refusal.refused()) {
            refusal = blocks_.next();
            if (refusal.refused()) {
                break;
            }
            if (blocks_.atEndMarker()) {
                return finish();
            }
            BlockOutcome outcome = BlockOutcome::read;
            refusal = blocks_.checkOrder();
            if (!refusal.refused()) {
                refusal = readBlock(outcome);
            }
            if (refusal.refused()) {
                // Telling walks on, over the blocks that are not reached.
                const RXReadResult result = {refusal.status, blocks_.block().id};
                tell_.stoppedAt(blocks_, refusal);
                return result;
            }
            tell_.block(blocks_, outcome);
        }
        tell_.refused(refusal, noFailedBlock);
        return {refusal.status, noFailedBlock};
    }

  private:
    Refusal readBlock(BlockOutcome& outcome) {
        const std::uint32_t id = blocks_.block().id;
        if (const RXTableEntry* entry = entries_.find(id); entry != nullptr) {
            return readKnownBlock(*entry);
        }
        if (id >= table_.firstCustomBlockId) {
            outcome = BlockOutcome::custom;
            return customBlocks_.measure(blocks_);
        }
        // The format has no such blocks, and nothing says how long their payload is.
        outcome = BlockOutcome::unknown;
        return {};
    }

    Refusal readKnownBlock(const RXTableEntry& entry) {
        const Refusal refusal = filler_.fill(entry, blocks_);
        if (!refusal.refused() && table_.isFrequencyBlock(&blocks_.block()) != 0) {
            ++frequencyBlockCount_;
        }
        return refusal;
    }

    RXReadResult finish() {
        tell_.endMarker(blocks_);
        RXReadResult result = {VANTRIC_OK, noFailedBlock};
        result.status = table_.validateWholeCalibration(&table_, &result);
        if (result.status != VANTRIC_OK) {
            if (tell_.isHeard()) {
                tell_.refused(refusalOfWhole(table_, result, blocks_.offset()),
                              result.failedBlockId);
            }
            return result;
        }
        filler_.finish();
        table_.context->frequencyCount = frequencyBlockCount_;
        customBlocks_.store(*table_.context, table_.firstCustomBlockId);
        return {VANTRIC_OK, noFailedBlock};  // a host's function may have left another id
    }

    BlockCursor& blocks_;
    const RXBlockTable& table_;
    EntryIndex entries_;
    RecordFiller filler_;
    CustomBlocks customBlocks_;
    Teller tell_;
    std::uint8_t frequencyBlockCount_ = 0;
};

// The status for a table that cannot be read with.
std::uint32_t statusOf(const RXBlockTable* table) {
    if (table == nullptr) {
        return VANTRIC_ERR_BUFFER_TOO_SMALL;
    }
    const bool usable = table->context != nullptr && table->isFrequencyBlock != nullptr &&
                        table->validateBlock != nullptr &&
                        table->validateWholeCalibration != nullptr;
    return usable ? VANTRIC_OK : VANTRIC_ERR_INVALID_ARGUMENT;
}

}  // namespace

RXReadResult readBlocks(VantricStream& stream, const RXBlockTable* table, WalkObserver* observer) {
    const Teller tell(observer);
    BlockCursor blocks(stream);
    const Refusal refusal = blocks.readFileHeader();
    if (refusal.refused()) {
        tell.refused(refusal, noFailedBlock);
        return {refusal.status, noFailedBlock};
    }
    const std::uint32_t status = statusOf(table);
    return status == VANTRIC_OK ? Walk(blocks, *table, tell).run()
                                : RXReadResult{status, noFailedBlock};
}

}  // namespace vantric

using namespace vantric;

RXReadResult vantric_readRXCalibration(VantricStream* stream, RXBlockTable* table) {
    const TableOwner owned(table);
    return readBlocks(*stream, table, nullptr);
}
