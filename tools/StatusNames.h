// Names for the numbers of the calibration format, as the command prints them.
#pragma once

#include <cstdint>
#include <string>

namespace calcut::tools {

/// "VANTRIC_ERR_END_OF_DATA" and so on; "0x12345678" for a number without a name.
std::string statusName(std::uint32_t status);

/// A short clause for people: "the data ends inside a header or payload".
const char* statusText(std::uint32_t status);

/// What a block carries, for instance "lens parameters" or "frequency 2: pixel table"; "custom
/// block" from 128 on, "unknown" where the format has no such id.
std::string blockName(std::uint32_t id);

/// "raw", "uint16", "uint32", "int32", "float", "packed uint", "packed float"; "unknown" above.
const char* kindName(std::uint32_t kind);

}  // namespace calcut::tools
