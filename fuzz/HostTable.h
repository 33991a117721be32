// Block tables that a host makes, inside the documented contract.
#pragma once

#include <array>
#include <cstdint>
#include <optional>

#include "calibration/owners.h"
#include "Input.h"
#include "targets.h"

namespace fuzz {

/// Entries of the library's own table in another order, some left out, doubled or changed, as the
/// input says.
class HostTable {
  public:
    /// For a record with room for that many pixels.
    HostTable(VantricCalibration& record, std::uint64_t pixels, Input& input);
    HostTable(const HostTable&) = delete;
    HostTable& operator=(const HostTable&) = delete;

    /// The table for one read, which releases it; null when memory ran out.
    RXBlockTable* release() { return table_.release(); }

  private:
    void setCallbacks(const RXBlockTable& own, Input& input);
    RXTableEntry changed(const RXTableEntry& entry, Input& input);
    void add(const RXTableEntry& entry);

    vantric::TableOwner table_;
    std::array<Bytes, 4> places_;  ///< destinations outside of the record
    std::size_t placesUsed_ = 0;
};

}  // namespace fuzz
