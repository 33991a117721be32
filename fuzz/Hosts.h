// What hosts plug into the library: formats of their own and block tables of their own, all of them
// inside the documented contracts.
#pragma once

#include <array>
#include <cstdint>

#include "calcut/vantric_rx.h"
#include "Input.h"
#include "targets.h"

namespace fuzz {

/// Handlers in the order of their number: a format of the host that fills records, one without the
/// optional functions, and one that reads packed calibrations and judges them in its own way.
constexpr unsigned hostHandlers = 3;
const VantricCalibrationHandler& hostHandler(unsigned number);

/// The first bytes of the formats of the host; columns, rows and four bytes of choices follow.
constexpr std::uint8_t fillingMagic = 'H';
constexpr std::uint8_t bareMagic = 'B';
constexpr std::size_t hostDataSize = 7;

/// True when the data is in one of the host's formats, whose handlers rely on records of enough
/// pixels and look for nothing themselves.
bool isHostData(const Bytes& data);
/// Pixels for which a record must have been made before the data is read into it.
std::uint64_t pixelsOf(const Bytes& data);

/// A table that a host makes for a record: entries of the library's own table for that many pixels
/// in another order, some left out, doubled or changed, as the input says.
class HostTable {
  public:
    HostTable(VantricCalibration& record, std::uint64_t pixels, Input& input);
    HostTable(const HostTable&) = delete;
    HostTable& operator=(const HostTable&) = delete;

    /// The table for one read, which releases it; null when memory ran out.
    RXBlockTable* release();

  private:
    struct Change {
        std::uint64_t entry = 0;
        unsigned what = 0;
        std::uint8_t value = 0;
    };

    void add(const RXTableEntry& entry, const Change* change);

    RXBlockTable* table_ = nullptr;
    std::array<Bytes, 4> places_;  ///< destinations outside of the record
    std::size_t placesUsed_ = 0;
};

}  // namespace fuzz
