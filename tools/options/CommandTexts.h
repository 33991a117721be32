// The texts of the command line, for man pages and shell completion.
#pragma once

#include <string>
#include <vector>

namespace calcut::tools {

struct OptionText {
    std::vector<std::string> names;    ///< with their dashes; one without for a positional
    std::string value;                 ///< "DIR"; empty for a flag
    std::vector<std::string> choices;  ///< when only these values are taken
    std::string text;
};

struct CommandText {
    std::string name;    ///< of the subcommand; empty for the command itself
    std::string text;    ///< one sentence
    std::string footer;  ///< more of them, then "Examples:" and these
    std::vector<OptionText> options;
};

/// Writes into a directory, from the texts (the command itself first): man pages (calcut.1,
/// calcut-cut.1, ...) and completions (calcut.bash, _calcut, calcut.fish). Returns the exit status.
int generateTexts(const std::vector<CommandText>& commands, const std::string& directory);

}  // namespace calcut::tools
