// A module as compare and export take it in.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "tools/module/Diagnosis.h"
#include "tools/module/Layout.h"

namespace calcut::module {

/// A file and what it holds; the diagnosis points into the bytes.
struct Module {
    files::Dump dump;
    Diagnosis diagnosis;  ///< its calibration reads, and everything of it was read
};

/// Throws Refused when the file has no calibration that reads. A fault of the image alone (a wrong
/// CRC-32, say) does not keep the calibration from sight; it is told as a warning.
std::unique_ptr<Module> loadModule(const std::string& path, std::optional<Layout> layout,
                                   std::uint64_t maxSize);

}  // namespace calcut::module
