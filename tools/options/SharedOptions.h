// Options that several subcommands have.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <type_traits>
#include <vector>

#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>

#include "tools/dump/Dump.h"
#include "tools/terminal/Terminal.h"

namespace calcut::tools {

/// -q, -v and --color.
void addTerminalOptions(CLI::App& command, TerminalSettings& settings);

/// The layout of that name; nothing for "auto".
std::optional<Layout> layoutOf(const std::string& name);

/// --layout. For "auto", a target that is not optional is v7.
template <class Target>
CLI::Option* addLayout(CLI::App& command, Target& layout, const char* text) {
    return command
        .add_option_function<std::string>(
            "--layout",
            [&layout](const std::string& name) {
                layout = layoutOf(name).value_or(Layout::V7);
                if constexpr (!std::is_same_v<Target, Layout>) {
                    layout = layoutOf(name);
                }
            },
            text)
        ->check(CLI::IsMember(std::vector<std::string>{"auto", "v7", "korveline", "packed"}))
        ->type_name("LAYOUT");
}

/// --max-size
void addMaxSize(CLI::App& command, std::uint64_t& maxSize);

/// Takes only names of pictures, .png or .svg.
CLI::Validator pictureName();

}  // namespace calcut::tools
