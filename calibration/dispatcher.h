#pragma once

// The handler registry and the reading entry points; declared in the public header.
#include "calcut/vantric.h"
