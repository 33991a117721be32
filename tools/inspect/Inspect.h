// calcut inspect: what files hold, and what is wrong with them.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "tools/module/Diagnosis.h"
#include "tools/text/Lines.h"

namespace calcut::inspect {

struct InspectOptions {
    std::vector<std::string> paths;  ///< files and folders, "-" for standard input
    module::Reading reading;
    bool json = false;    ///< an object, or a list of them
    bool jsonl = false;   ///< one object on each line
    bool strict = false;  ///< warnings make the exit status 1, too
};

/// Prints what the files hold. Returns the exit status.
int runInspect(const InspectOptions& options);

/// What a file holds, as lines of text, the last one ended, too. The diagnosis must have been made
/// with everything wanted.
std::string textOf(const module::Diagnosis& about, std::string_view path,
                   const text::TextStyle& style);

}  // namespace calcut::inspect
