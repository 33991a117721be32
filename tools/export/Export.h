// calcut export: a module's tables and lens as files that other tools read.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "tools/files/Dump.h"
#include "tools/module/Layout.h"

namespace calcut::exporting {

/// Of every table, then of the lens.
enum class ExportFormat : std::uint8_t { Npy, Csv, Pgm, OpencvYaml, RosYaml, Json };

struct ExportOptions {
    std::string input;      ///< dump or bare calibration, "-" for standard input
    std::string directory;  ///< made when only its last step is not there
    ExportFormat format = ExportFormat::Npy;
    std::optional<module::Layout> layout;  ///< by its first bytes when not set
    std::uint64_t maxSize = files::defaultMaxSize;
    bool force = false;  ///< replace files that exist
};

/// Writes the files. Returns the exit status.
int runExport(const ExportOptions& options);

}  // namespace calcut::exporting
