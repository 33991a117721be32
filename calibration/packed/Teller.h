#pragma once

#include "calibration/packed/BlockCursor.h"
#include "calibration/packed/Reader.h"

namespace vantric {

/// Tells an observer, if there is one, what a walk meets.
class Teller {
  public:
    explicit Teller(WalkObserver* observer) : observer_(observer) {}

    void block(const BlockCursor& blocks, BlockOutcome outcome) const {
        if (observer_ != nullptr) {
            observer_->block({blocks.block(), blocks.offset(), blocks.payloadOffset(),
                              blocks.payloadSize(), outcome});
        }
    }
    void endMarker(const BlockCursor& blocks) const {
        if (observer_ != nullptr) {
            observer_->endMarker(blocks.offset());
        }
    }
    void refused(const Refusal& refusal, std::uint32_t blockId) const {
        if (observer_ != nullptr) {
            observer_->refused(refusal, blockId);
        }
    }

    /// The block that stopped a walk, why it did, and the blocks behind it.
    void stoppedAt(BlockCursor& blocks, const Refusal& refusal) const {
        if (observer_ == nullptr) {
            return;
        }
        block(blocks, BlockOutcome::failed);
        refused(refusal, blocks.block().id);
        for (;;) {
            blocks.stream().position = blocks.payloadOffset() + blocks.payloadSize();
            if (blocks.next().refused()) {
                return;
            }
            if (blocks.atEndMarker()) {
                endMarker(blocks);
                return;
            }
            block(blocks, BlockOutcome::notReached);
        }
    }

    [[nodiscard]] bool isHeard() const { return observer_ != nullptr; }

  private:
    WalkObserver* observer_;
};

}  // namespace vantric
