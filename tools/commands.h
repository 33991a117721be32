// What the rooms of the command agree on.
//
// Each subcommand is a plain struct of options and a function that does the work and returns the
// exit status; tools/options/ alone knows how a command line is written. An outer main prints
// whatever exception leaves the work, flushes standard output and tells when that fails.
//
// `calcut plot` is a program of its own, calcut-plot, so that no other subcommand loads the drawing
// library. calcut reads and checks the command line and becomes calcut-plot, which lies beside it
// or in ../libexec/calcut, with fixed words (tools/plot/main.cpp reads them):
//
//     calcut-plot INPUT OUTPUT LAYOUT MAX-SIZE SHARED-SCALE COLOUR VERBOSITY
//
// So is a comparison that draws:
//
//     calcut-plot compare A B OUTPUT LAYOUT MAX-SIZE JSON TOLERANCE COLOUR VERBOSITY
#pragma once

namespace calcut::tools {

/// Exit statuses of the command.
inline constexpr int exitOk = 0;      ///< everything asked for was done
inline constexpr int exitFailed = 1;  ///< a dump, calibration or file was refused or not written
inline constexpr int exitUsage = 2;   ///< the command line itself is wrong

}  // namespace calcut::tools
