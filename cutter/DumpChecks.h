#pragma once

#include "cutter/FileAccess.h"
#include "cutter/imageRecord.h"

// How a cut and the exported readers refuse a dump. Each refusal is one log line of type error.

/// Ends the process for a dump that is missing, unreadable or empty.
void requireContent(const InputFile& dump);

/// Throws a bool of value false for a refused record.
void requireAccepted(const calcut::image::Record& record);
