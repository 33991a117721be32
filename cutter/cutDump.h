#pragma once

#include <string>

#include "cutter/layouts.h"

// What a cut does, the same way for every layout. outputPath is a directory without a trailing
// separator.

/// Loads a dump, checks its first record and writes the files of its block. Ends the process as
/// requireContent does, throws as requireAccepted and writeBlock do.
bool cutDump(const calcut::image::Layout& layout, const std::string& inputFile,
             const std::string& outputPath, EEPROMMetaInformation& meta);

/// Writes "qov.spc", "lensdata.dat" with the count in meta and, for a signed block,
/// "signature.bin". False, with a log line, for the first that fails; the files before it stay. An
/// id that no block of the layout has ends the process; a signed block without room for its
/// signature area throws std::length_error.
bool writeBlock(const calcut::image::Layout& layout, const std::string& outputPath,
                unsigned int blockId, calcut::image::Bytes payload, EEPROMMetaInformation& meta);

/// Writes "signature.bin" from the area at the end of the payload; false for an empty signature,
/// and for one longer than the area (then no file is made). Throws std::out_of_range when the
/// payload is shorter than the area.
bool writeSignature(const calcut::image::Layout& layout, const std::string& outputPath,
                    calcut::image::Bytes payload);
