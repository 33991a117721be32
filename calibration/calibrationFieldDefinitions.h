#pragma once

// The four "is this value set" tests are declared in the public header; their spellings
// (Unsignd, Unit8, Unit16) are part of the interface.
#include "calcut/vantric.h"
