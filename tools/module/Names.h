// Names for the numbers of the formats, as people and reports see them.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <string_view>

#include "calibration/packed/Reader.h"

namespace calcut::module {

/// Names of the lens parameters in the order of the record.
inline constexpr std::array<const char*, VANTRIC_LENS_PARAMETERS> lensNames = {
    "fx", "fy", "cx", "cy", "k1", "k2", "p1", "p2", "k3"};

/// "VANTRIC_ERR_END_OF_DATA" and so on; "0x12345678" for a number without a name.
std::string statusName(std::uint32_t status);

/// What the name of a status of a read means: "the data ends inside a header or payload".
const char* statusText(std::string_view name);

/// What a block carries, for instance "lens parameters" or "frequency 2: pixel table"; "custom
/// block" from 128 on, "unknown" where the format has no such id.
std::string blockName(std::uint32_t id);

/// "block 1 (lens parameters)"
std::string blockLabel(std::uint32_t id);

/// "raw", "uint16", "uint32", "int32", "float", "packed uint", "packed float"; "unknown" above.
const char* kindName(std::uint64_t kind);

/// "read" (custom blocks too), "ignored" (unknown ids), "failed", "not reached".
const char* outcomeName(vantric::BlockOutcome outcome);

}  // namespace calcut::module
