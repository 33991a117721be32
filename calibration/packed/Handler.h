#pragma once

// The plug of the packed format into the handler registry; declared in the public header.
#include "calcut/vantric_rx.h"
