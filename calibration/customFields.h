#pragma once

// Fields by number; declared in the public header.
#include "calcut/vantric.h"
