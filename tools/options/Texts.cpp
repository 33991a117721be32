#include "tools/options/Texts.h"

#include <algorithm>
#include <cctype>

#include <fmt/format.h>
#include <CLI/CLI.hpp>

#include "tools/commands.h"
#include "tools/files/OutputFile.h"

namespace calcut::options {

namespace {

/// The command itself first.
using Commands = std::vector<const CLI::App*>;

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
std::vector<const CLI::Option*> namedOptions(const CLI::App& command) {
    return command.get_options([](const CLI::Option* option) { return option->nonpositional(); });
}

/// With their dashes, and a separator between them; a positional's own name.
std::string namesOf(const CLI::Option& option, const char* separator) {
    return replaced(option.get_name(false, true), ",", separator);
}

/// "DIR"; empty for a flag. The parser adds what it takes, as in "WHEN:{auto,always,never}".
std::string valueOf(const CLI::Option& option) {
    return CLI::detail::split(option.get_type_name(), ':').front();
}

/// The values, when only these are taken.
std::string choicesOf(const CLI::Option& option, const char* separator) {
    const std::string type = option.get_type_name();
    const std::size_t open = type.find('{') + 1;
    return open == 0 ? "" : replaced(type.substr(open, type.find('}') - open), ",", separator);
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

std::string manPage(const std::string& title, const CLI::App& command) {
    const std::string name = nameOf(command);
    std::string capitals, positionals, options;
    for (const char letter : title) {
        capitals += static_cast<char>(std::toupper(letter));
    }
    std::string subcommands = name.empty() ? ".SH SUBCOMMANDS\n" : "";
    for (const CLI::App* other : command.get_subcommands({})) {
        subcommands += fmt::format(".TP\n\\fBcalcut\\-{}\\fR(1)\n{}\n", other->get_name(),
                                   roff(other->get_description()));
    }
    for (const CLI::Option* option : command.get_options()) {
        positionals += option->nonpositional() ? "" : " " + option->get_name() + "...";
        options += manOption(*option);
    }
    const std::string footer = command.get_footer();
    const std::size_t examples = footer.find("Examples:\n");
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
{}.SH OPTIONS
{}.SH EXAMPLES
.nf
{}
.fi
)",
                       capitals, CALCUT_VERSION, roff(title), roff(command.get_description()),
                       name.empty() ? "\\fISUBCOMMAND\\fR" : name, positionals,
                       roff(footer.substr(0, examples)), subcommands, options,
                       roff(footer.substr(footer.find('\n', examples) + 1)));
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
            values += choices.empty() ? ""
                                      : fmt::format("    {}:{}) words=\"{}\" ;;\n", name,
                                                    option->get_name(), choices);
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

std::string zshQuoted(const std::string& text) {
    const std::string round = replaced(replaced(text, "[", "("), "]", ")");
    return replaced(replaced(round, "'", "'\\''"), ":", "\\:");
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
    std::string lines;
    for (const CLI::App* command : commands) {
        const std::string name = nameOf(*command);
        if (!name.empty()) {
            lines += fmt::format("complete -c calcut -n __fish_use_subcommand -a {} -d '{}'\n",
                                 name, quoted(command->get_description()));
        }
        const std::string where =
            name.empty() ? "__fish_use_subcommand" : "__fish_seen_subcommand_from " + name;
        for (const CLI::Option* option : namedOptions(*command)) {
            const std::string typed = replaced(" " + namesOf(*option, " "), " -", " -s ");
            const std::string choices = choicesOf(*option, " ");
            lines +=
                fmt::format("complete -c calcut -n '{}'{}{}{} -d '{}'\n", where,
                            replaced(typed, " -s -", " -l "), valueOf(*option).empty() ? "" : " -r",
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
    const auto write = [&](const std::string& name, const std::string& text) {
        files::writeOutput(directory + "/" + name, text);
    };
    write("calcut.bash", bashCompletion(commands));
    write("_calcut", zshCompletion(app));
    write("calcut.fish", fishCompletion(commands));
    for (const CLI::App* command : commands) {
        const std::string name = nameOf(*command);
        const std::string title = name.empty() ? "calcut" : "calcut-" + name;
        write(title + ".1", manPage(title, *command));
    }
    return exitOk;
}

}  // namespace calcut::options
