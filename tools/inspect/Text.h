// The tree of a file as text for people.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "tools/inspect/Tree.h"
#include "tools/terminal/Terminal.h"

namespace calcut::tools {

struct TextStyle {
    std::size_t width = 0;  ///< columns of the terminal, 0 for as many as it takes
    std::string (*paint)(Colour colour, std::string_view text) = nullptr;  ///< null: no colours
};

/// Lines of text, the last one ended, too.
std::string textOf(const Json& tree, const TextStyle& style);

}  // namespace calcut::tools
