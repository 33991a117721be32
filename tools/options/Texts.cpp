// Man pages and shell completion, out of what the parser knows.
#include <algorithm>
#include <cctype>
#include <map>

#include <fmt/format.h>
#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>

#include "tools/commands.h"
#include "tools/options/CommandLine.h"
#include "tools/terminal/OutputFile.h"

namespace calcut::tools {

namespace {

/// The command itself first.
using Commands = std::vector<const CLI::App*>;
using Options = std::vector<const CLI::Option*>;

std::string replaced(std::string text, const std::string& what, const std::string& with) {
    for (std::size_t at = text.find(what); at != std::string::npos;
         at = text.find(what, at + with.size())) {
        text.replace(at, what.size(), with);
    }
    return text;
}

/// Empty for the command itself.
std::string nameOf(const CLI::App& command) {
    return command.get_parent() == nullptr ? "" : command.get_name();
}

/// Without the positionals.
Options namedOptions(const CLI::App& command) {
    return command.get_options([](const CLI::Option* option) { return option->nonpositional(); });
}

/// With their dashes, and a separator between them; a positional's own name.
std::string namesOf(const CLI::Option& option, const char* separator) {
    return replaced(option.get_name(false, true), ",", separator);
}

/// "DIR"; empty for a flag. The parser adds what it takes, as in "WHEN:{auto,always,never}".
std::string valueOf(const CLI::Option& option) {
    const std::string type = option.get_type_name();
    return type.substr(0, type.find(':'));
}

/// The values, when only these are taken.
std::string choicesOf(const CLI::Option& option, const char* separator) {
    const std::string type = option.get_type_name();
    const std::size_t open = type.find('{');
    return open == std::string::npos
               ? ""
               : replaced(type.substr(open + 1, type.find('}') - open - 1), ",", separator);
}

// ---------------------------------------------------------------------------------- man pages --

std::string roff(const std::string& text) {
    const std::string out = replaced(replaced("\n" + text, "\\", "\\e"), "-", "\\-");
    return replaced(replaced(out, "\n.", "\n\\&."), "\n'", "\n\\&'").substr(1);
}

std::string manOption(const CLI::Option& option) {
    const std::string value = option.nonpositional() ? valueOf(option) : "";
    const std::string choices = choicesOf(option, ", ");
    return fmt::format(".TP\n\\fB{}\\fR{}\n{}{}\n", roff(namesOf(option, ", ")),
                       value.empty() ? "" : " \\fI" + value + "\\fR",
                       roff(option.get_description()), choices.empty() ? "" : " (" + choices + ")");
}

std::string manPage(const CLI::App& command) {
    const std::string name = nameOf(command);
    const std::string title = name.empty() ? "calcut" : "calcut-" + name;
    std::string capitals = title, positionals, subcommands, options;
    std::transform(title.begin(), title.end(), capitals.begin(),
                   [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
    for (const CLI::App* other : command.get_subcommands({})) {
        subcommands += fmt::format(".TP\n\\fBcalcut\\-{}\\fR(1)\n{}\n", other->get_name(),
                                   roff(other->get_description()));
    }
    for (const CLI::Option* option : command.get_options()) {
        positionals += option->nonpositional() ? "" : " " + option->get_name() + "...";
        options += manOption(*option);
    }
    const std::string footer = command.get_footer();
    const std::string heading = "Examples:\n";
    const std::size_t examples = footer.find(heading);
    return fmt::format(R"(.TH {} 1 "" "calcut {}"
.SH NAME
{} \- {}
.SH SYNOPSIS
.B calcut {}
[\fIOPTIONS\fR]{}
.SH DESCRIPTION
.nf
{}
.fi
{}{}.SH OPTIONS
{}.SH EXAMPLES
.nf
{}
.fi
)",
                       capitals, CALCUT_VERSION, roff(title), roff(command.get_description()),
                       name.empty() ? "\\fISUBCOMMAND\\fR" : name, positionals,
                       roff(footer.substr(0, examples)),
                       subcommands.empty() ? "" : ".SH SUBCOMMANDS\n", subcommands, options,
                       roff(footer.substr(examples + heading.size())));
}

// --------------------------------------------------------------------------------- completion --

std::string bashCompletion(const Commands& commands) {
    std::string names, words, values;
    for (const CLI::App* command : commands) {
        const std::string name = nameOf(*command);
        std::string options;
        for (const CLI::Option* option : namedOptions(*command)) {
            options += " " + namesOf(*option, " ");
            const std::string choices = choicesOf(*option, " ");
            if (!choices.empty()) {
                values +=
                    fmt::format("    {}:{}) words=\"{}\" ;;\n", name, option->get_name(), choices);
            }
        }
        names += name.empty() ? "" : " " + name;
        words += fmt::format("      \"{}\") words=\"{}\" ;;\n", name, options.substr(1));
    }
    return R"(# bash completion of calcut
_calcut() {
  local word=${COMP_WORDS[COMP_CWORD]} sub= words= i
  for ((i = 1; i < COMP_CWORD; ++i)); do
    [[ ${COMP_WORDS[i]} != -* ]] && { sub=${COMP_WORDS[i]}; break; }
  done
  case $sub:${COMP_WORDS[COMP_CWORD - 1]} in
)" + values +
           "  esac\n  if [[ -z $words && ($word == -* || -z $sub) ]]; then\n    case $sub in\n" +
           words + "    esac\n    [[ -z $sub ]] && words+=\"" + names + R"("
  fi
  COMPREPLY=($(compgen -W "$words" -- "$word"))
}
complete -o default -F _calcut calcut
)";
}

std::string zshQuoted(std::string text) {
    for (const auto& [what, with] :
         {std::pair{"'", "'\\''"}, {"[", "("}, {"]", ")"}, {":", "\\:"}}) {
        text = replaced(text, what, with);
    }
    return text;
}

/// What an option's value is completed with.
std::string zshAction(const CLI::Option& option) {
    const std::string value = valueOf(option);
    const std::string choices = choicesOf(option, " ");
    const std::string files = value == "DIR" ? "_files -/" : value == "FILE" ? "_files" : "";
    return value.empty() ? "" : ":" + value + ":" + (choices.empty() ? files : "(" + choices + ")");
}

std::string zshCompletion(const CLI::App& app) {
    std::string names, cases;
    for (const CLI::App* command : app.get_subcommands({})) {
        const std::string name = nameOf(*command);
        names += fmt::format("      '{}:{}'\n", name, zshQuoted(command->get_description()));
        cases += fmt::format("    {})\n    _arguments \\\n", name);
        for (const CLI::Option* option : namedOptions(*command)) {
            for (const std::string& typed : CLI::detail::split(namesOf(*option, " "), ' ')) {
                cases += fmt::format("      '{}[{}]{}' \\\n", typed,
                                     zshQuoted(option->get_description()), zshAction(*option));
            }
        }
        cases += "      '*:file:_files' ;;\n";
    }
    return "#compdef calcut\nlocal -a subcommands\nif (( CURRENT == 2 )); then\n  subcommands=(\n" +
           names + "  )\n  _describe subcommand subcommands\nelse\n  case ${words[2]} in\n" +
           cases + "  esac\nfi\n";
}

std::string fishCompletion(const Commands& commands) {
    const auto quoted = [](const std::string& text) { return replaced(text, "'", "\\'"); };
    const std::string start = "__fish_use_subcommand";
    std::string lines;
    for (const CLI::App* command : commands) {
        const std::string name = nameOf(*command);
        if (!name.empty()) {
            lines += fmt::format("complete -c calcut -n {} -a {} -d '{}'\n", start, name,
                                 quoted(command->get_description()));
        }
        for (const CLI::Option* option : namedOptions(*command)) {
            const std::string typed = replaced(" " + namesOf(*option, " "), " --", " -l ");
            const std::string choices = choicesOf(*option, " ");
            lines +=
                fmt::format("complete -c calcut -n '{}'{}{}{} -d '{}'\n",
                            name.empty() ? start : "__fish_seen_subcommand_from " + name,
                            replaced(typed, " -", " -s "), valueOf(*option).empty() ? "" : " -r",
                            choices.empty() ? "" : " -f -a '" + choices + "'",
                            quoted(option->get_description()));
        }
    }
    return lines;
}

}  // namespace

int generateTexts(const CLI::App& app, const std::string& directory) {
    Commands commands = app.get_subcommands({});
    commands.insert(commands.begin(), &app);
    std::map<std::string, std::string> files = {{"calcut.bash", bashCompletion(commands)},
                                                {"_calcut", zshCompletion(app)},
                                                {"calcut.fish", fishCompletion(commands)}};
    for (const CLI::App* command : commands) {
        const std::string name = nameOf(*command);
        files[(name.empty() ? "calcut" : "calcut-" + name) + ".1"] = manPage(*command);
    }
    const bool good = std::ranges::all_of(files, [&directory](const auto& file) {
        const auto& [name, text] = file;
        return writeOutput(directory + "/" + name,
                           {reinterpret_cast<const std::uint8_t*>(text.data()), text.size()});
    });
    return good ? exitOk : exitFailed;
}

}  // namespace calcut::tools
