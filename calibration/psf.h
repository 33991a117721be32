#pragma once

// The straylight point-spread function; declared in the public header.
#include "calcut/vantric.h"
