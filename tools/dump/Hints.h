// What stands in the place of an image.
#pragma once

#include <string>

#include "tools/dump/Diagnosis.h"

namespace calcut::tools {

/// The finding about a file that does not begin with the magic of its layout (Unknown: with none),
/// with the reason where one can be told.
Finding wrongMagic(ByteView file, Layout layout);

/// The magic of a layout in quotes.
std::string quotedMagic(Layout layout);

/// Text of a magic, or what stands in its place, in quotes; what is not printable ASCII becomes
/// \xNN.
std::string quotedBytes(ByteView bytes);

}  // namespace calcut::tools
