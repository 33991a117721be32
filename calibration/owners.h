#pragma once

#include <memory>

#include "calcut/vantric.h"
#include "calcut/vantric_rx.h"

// Who releases what, for records that pass through C++ hands.

namespace vantric {

template <auto Release>
struct ReleasedBy {
    template <class T>
    void operator()(T* object) const noexcept {
        Release(object);
    }
};

using RecordOwner = std::unique_ptr<VantricCalibration, ReleasedBy<vantric_freeCalibration>>;
using TableOwner = std::unique_ptr<RXBlockTable, ReleasedBy<vantric_freeRXTable>>;
using PolyOwner = std::unique_ptr<VantricPoly, ReleasedBy<vantric_freePoly>>;

}  // namespace vantric
