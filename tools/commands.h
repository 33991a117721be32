// What the rooms of the command agree on.
//
// Each subcommand is a plain struct of options and a function that does the work and returns the
// exit status; tools/options/ alone knows how a command line is written. An outer main prints
// whatever exception leaves the work, flushes standard output and tells when that fails.
//
// Pictures are drawn by a program of the Python package, calcut-plot, which lies beside the command
// or in ../libexec/calcut (tools/plot/Plot.h).
#pragma once

namespace calcut {

/// Exit statuses of the command.
inline constexpr int exitOk = 0;      ///< everything asked for was done
inline constexpr int exitFailed = 1;  ///< a dump, calibration or file was refused or not written
inline constexpr int exitUsage = 2;   ///< the command line itself is wrong

}  // namespace calcut
