#pragma once

#include "calibration/packed/Reader.h"

namespace vantric {

/// Tells what happens to whoever watches.
class Teller {
  public:
    explicit Teller(WalkObserver* observer) : observer_(observer) {}

    void block(const BlockSighting& sighting) const {
        if (observer_ != nullptr) {
            observer_->block(sighting);
        }
    }
    void endMarker(std::uint64_t offset) const {
        if (observer_ != nullptr) {
            observer_->endMarker(offset);
        }
    }
    void refused(const Refusal& refusal, std::uint32_t blockId) const {
        if (observer_ != nullptr) {
            observer_->refused(refusal, blockId);
        }
    }
    [[nodiscard]] bool isHeard() const { return observer_ != nullptr; }

  private:
    WalkObserver* observer_;
};

}  // namespace vantric
