#pragma once

// The generic block table; declared in the public header.
#include "calcut/vantric_rx.h"
