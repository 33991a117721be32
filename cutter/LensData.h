#pragma once

#include <string>

#include "calcut/cutter.h"
#include "cutter/imageRecord.h"

// "lensdata.dat", 36 bytes, nine floats in the byte order of the machine:
//
//     offset   0   4   8  12  16  20  24  28  32
//     value   fx  fy  cx  cy  k1  k2  p1  p2  k3

/// Decodes a packed calibration, stores the number of masked pixels in meta and writes
/// "lensdata.dat" into outputPath. False when the calibration does not read (meta is then
/// untouched) or the file cannot be opened (meta is then filled).
bool writeLensData(calcut::image::Bytes calibration, const std::string& outputPath,
                   EEPROMMetaInformation& meta);

/// The body of readLensParameters behind its layout test; false when the file does not serve.
bool readLensData(const std::string& path, float* parameters);
