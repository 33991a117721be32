// Options that several subcommands have.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>

#include "tools/dump/Dump.h"
#include "tools/terminal/Terminal.h"

namespace calcut::tools {

using Words = std::vector<std::string>;

template <class Target>
CLI::Option* addValue(CLI::App& command, const char* names, Target& target, const char* type,
                      const char* text) {
    return command.add_option(names, target, text)->type_name(type);
}

/// -q, -v and --color.
void addTerminalOptions(CLI::App& command, TerminalSettings& settings);

CLI::Option* addLayout(CLI::App& command, std::optional<Layout>& layout, const char* text);

/// What every subcommand has that reads dumps.
void addReading(CLI::App& command, std::optional<Layout>& layout, std::uint64_t& maxSize);

}  // namespace calcut::tools
