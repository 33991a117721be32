// calcut make: dumps and packed calibrations for people who have no module at hand.
#pragma once

#include <optional>
#include <string>

#include "tools/module/Layout.h"
#include "writer/writer.h"

namespace calcut::make {

struct MakeOptions {
    std::optional<module::Layout> layout;  ///< v7 when not set; Packed: no image around it
    std::optional<unsigned> signature;     ///< its bytes, for Korveline
    writer::CalibrationOptions content;
    std::optional<unsigned> tableBits;
    std::string output;
    bool force = false;
};

/// What is wrong with a combination of options, or nothing.
std::optional<std::string> usageFault(const MakeOptions& options);

/// Stores columns and rows, written as 224x172. Returns what is wrong with them; empty for nothing.
std::string parseSize(const std::string& text, writer::CalibrationOptions& content);

/// Writes what the options describe. Returns the exit status.
int runMake(const MakeOptions& options);

}  // namespace calcut::make
