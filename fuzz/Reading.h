#pragma once

#include <cstdint>
#include <memory>

#include "calcut/vantric.h"

namespace fuzz {

struct ReleaseRecord {
    void operator()(VantricCalibration* record) const { vantric_freeCalibration(record); }
};
using Record = std::unique_ptr<VantricCalibration, ReleaseRecord>;

/// Reads whatever the record says it holds, for an image of that many pixels: what a host may do.
void touchRecord(const VantricCalibration& record, std::uint64_t pixels);

/// Size and value of every field id, with room for exactly the value. customRead: none of them may
/// be unread.
void everyField(const VantricCalibration& record, bool customRead);

}  // namespace fuzz
