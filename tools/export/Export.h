// calcut export: a module's tables and lens as files that other tools read.
#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "tools/files/Dump.h"
#include "tools/module/Diagnosis.h"
#include "tools/module/Layout.h"

namespace calcut::exporting {

/// Of every table, then of the lens.
enum class ExportFormat : std::uint8_t { Npy, Csv, Pgm, OpencvYaml, RosYaml, Json };
inline constexpr std::array exportFormats = {ExportFormat::Npy,     ExportFormat::Csv,
                                             ExportFormat::Pgm,     ExportFormat::OpencvYaml,
                                             ExportFormat::RosYaml, ExportFormat::Json};

struct ExportOptions {
    std::string input;      ///< dump or bare calibration, "-" for standard input
    std::string directory;  ///< made when only its last step is not there
    ExportFormat format = ExportFormat::Npy;
    std::optional<module::Layout> layout;  ///< by its first bytes when not set
    std::uint64_t maxSize = files::defaultMaxSize;
    bool force = false;    ///< replace files that exist
    bool damaged = false;  ///< write what reads of a dump with faults
};

struct ExportFile {
    std::string name;
    std::function<std::string()> text;  ///< its content; the module and the options must live
};

/// The files that an export of a module with a record writes.
std::vector<ExportFile> filesOf(const module::Diagnosis& module, const ExportOptions& options);

/// Writes the files. Returns the exit status.
int runExport(const ExportOptions& options);

}  // namespace calcut::exporting
