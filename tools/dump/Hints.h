// What stands in the place of an image.
#pragma once

#include <string>

#include "tools/dump/Diagnosis.h"

namespace calcut::tools {

/// The finding about a file that does not begin with the magic of its layout (Unknown: with none),
/// with the reason where one can be told.
Finding wrongMagic(ByteView file, Layout layout);

std::string quotedMagic(Layout layout);

/// What stands in the place of a magic, in quotes; what is not printable ASCII becomes \xNN.
std::string quotedBytes(ByteView bytes);

}  // namespace calcut::tools
