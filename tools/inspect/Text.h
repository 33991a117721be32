// What a file holds, as text for people.
#pragma once

#include <string>
#include <string_view>

#include "tools/module/Diagnosis.h"
#include "tools/text/Lines.h"

namespace calcut::inspect {

/// Lines of text, the last one ended, too. The diagnosis must have been made with everything
/// wanted.
std::string textOf(const module::Diagnosis& about, std::string_view path,
                   const text::TextStyle& style);

}  // namespace calcut::inspect
