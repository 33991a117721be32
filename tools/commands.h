// The subcommands of the calcut command. Each adds itself to the application; its callback stores
// the exit status in exitCode.
#pragma once

#include <CLI/CLI.hpp>

namespace calcut::tools {

/// Exit statuses of the command.
inline constexpr int exitOk = 0;      ///< everything asked for was done
inline constexpr int exitFailed = 1;  ///< a dump, calibration or file was refused or not written
inline constexpr int exitUsage = 2;   ///< the command line itself is wrong

void addMakeCommand(CLI::App& app, int& exitCode);
void addCutCommand(CLI::App& app, int& exitCode);
void addInspectCommand(CLI::App& app, int& exitCode);
void addPlotCommand(CLI::App& app, int& exitCode);

}  // namespace calcut::tools
