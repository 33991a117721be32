#pragma once

// The walk over the blocks; declared in the public header.
#include "calcut/vantric_rx.h"
