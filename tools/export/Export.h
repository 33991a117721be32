// calcut export: a module's tables and lens as files that other tools read.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "tools/dump/Dump.h"

namespace calcut::tools {

enum class ExportFormat : std::uint8_t {
    // Every table:
    Npy,
    Csv,
    Pgm,
    // The lens:
    OpencvYaml,
    RosYaml,
    Json
};

/// As in --as; in the order of the formats.
inline constexpr const char* exportFormatNames[] = {"npy",         "csv",      "pgm",
                                                    "opencv-yaml", "ros-yaml", "json"};

struct ExportOptions {
    std::string input;      ///< dump or bare calibration, "-" for standard input
    std::string directory;  ///< made when only its last step is not there
    ExportFormat format = ExportFormat::Npy;
    std::optional<Layout> layout;  ///< by its first bytes when not set
    std::uint64_t maxSize = defaultMaxSize;
    bool force = false;  ///< replace files that exist
};

/// Writes the files. Returns the exit status.
int runExport(const ExportOptions& options);

}  // namespace calcut::tools
