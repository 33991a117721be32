// Tables as the bytes of files.
#pragma once

#include <string>

#include "tools/dump/Tables.h"

namespace calcut::tools {

/// NumPy's format 1.0: (rows, columns), (rows, columns, 3), or (n,) for plain bytes.
std::string npyText(const Table& table);

/// One channel, a line for each row of the image; floats with the fewest digits that read back.
std::string csvText(const Table& table, unsigned channel);

/// One channel as a grey picture of 16 bits; a comment says what its samples mean.
std::string pgmText(const Table& table, unsigned channel);

}  // namespace calcut::tools
