#pragma once

// Printing to the standard error stream; declared in the public header.
#include "calcut/vantric.h"
