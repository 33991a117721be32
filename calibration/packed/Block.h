#pragma once

// File header, block headers and payload decoding; declared in the public header.
#include "calcut/vantric_rx.h"
