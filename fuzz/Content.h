// The content of a calibration, made from a target's input.
#pragma once

#include "Input.h"
#include "writer/writer.h"

namespace fuzz {

calcut::writer::Calibration makeContent(Input& input);

}  // namespace fuzz
