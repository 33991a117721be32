#pragma once

#include <cstdint>

#include "cutter/ByteBuffer.h"

/// One record of a dump, as a reader hands it out.
struct DataBlock {
    std::uint16_t id = 0;
    ByteBuffer data;  ///< copy of the payload
};
