// The command lines of calcut compare and calcut export.
#pragma once

#include "tools/compare/Compare.h"
#include "tools/export/Export.h"
#include "tools/options/SharedOptions.h"

namespace calcut::tools {

CLI::App* addCompare(CLI::App& app, CompareOptions& options);
CLI::App* addExport(CLI::App& app, ExportOptions& options);

}  // namespace calcut::tools
