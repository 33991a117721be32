#pragma once

#include <memory>

#include "calcut/vantric.h"
#include "calcut/vantric_rx.h"

// Owners of what the C interface hands out, for C++ code.

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
