#include "tools/options/CommandTexts.h"

#include <algorithm>

#include <fmt/format.h>

#include "tools/commands.h"
#include "tools/terminal/OutputFile.h"

namespace calcut::tools {

namespace {

bool isPositional(const OptionText& option) {
    return option.names.front().front() != '-';
}

bool isLong(const std::string& name) {
    return name.rfind("--", 0) == 0;
}

std::string replaced(std::string text, const std::string& what, const std::string& with) {
    for (std::size_t at = text.find(what); at != std::string::npos;
         at = text.find(what, at + with.size())) {
        text.replace(at, what.size(), with);
    }
    return text;
}

// ---------------------------------------------------------------------------------- man pages --

std::string roff(const std::string& text) {
    std::string out = replaced(replaced(text, "\\", "\\e"), "-", "\\-");
    if (out.rfind('.', 0) == 0 || out.rfind('\'', 0) == 0) {
        out.insert(0, "\\&");
    }
    return replaced(replaced(out, "\n.", "\n\\&."), "\n'", "\n\\&'");
}

std::string upperCase(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(),
                   [](char c) { return c >= 'a' && c <= 'z' ? static_cast<char>(c - 32) : c; });
    return text;
}

std::string manOptions(const CommandText& command) {
    std::string page;
    for (const OptionText& option : command.options) {
        page += fmt::format(
            ".TP\n\\fB{}\\fR{}\n{}{}\n", roff(fmt::format("{}", fmt::join(option.names, ", "))),
            isPositional(option) || option.value.empty() ? std::string()
                                                         : " \\fI" + option.value + "\\fR",
            roff(option.text),
            option.choices.empty() ? std::string()
                                   : fmt::format(" ({})", fmt::join(option.choices, ", ")));
    }
    return page;
}

std::string manPage(const std::vector<CommandText>& commands, const CommandText& command) {
    const bool whole = command.name.empty();
    const std::string title = whole ? "calcut" : "calcut-" + command.name;
    std::string positionals;
    for (const OptionText& option : command.options) {
        positionals += isPositional(option) ? " " + option.names.front() + "..." : "";
    }
    std::string page = fmt::format(
        ".TH {} 1 \"\" \"calcut {}\"\n.SH NAME\n{} \\- {}\n.SH SYNOPSIS\n.B calcut {}\n"
        "[\\fIOPTIONS\\fR]{}\n",
        upperCase(title), CALCUT_VERSION, roff(title), roff(command.text),
        whole ? "\\fISUBCOMMAND\\fR" : command.name, positionals);
    const std::size_t examples = command.footer.find("Examples:\n");
    page += ".SH DESCRIPTION\n.nf\n" + roff(command.footer.substr(0, examples)) + "\n.fi\n";
    if (whole) {
        page += ".SH SUBCOMMANDS\n";
        for (const CommandText& other : commands) {
            if (!other.name.empty()) {
                page +=
                    fmt::format(".TP\n\\fBcalcut\\-{}\\fR(1)\n{}\n", other.name, roff(other.text));
            }
        }
    }
    page += ".SH OPTIONS\n" + manOptions(command);
    if (examples != std::string::npos) {
        page += ".SH EXAMPLES\n.nf\n" +
                roff(command.footer.substr(command.footer.find('\n', examples) + 1)) + "\n.fi\n";
    }
    return page;
}

// --------------------------------------------------------------------------------- completion --

std::string bashCompletion(const std::vector<CommandText>& commands) {
    std::string names, cases, values;
    for (const CommandText& command : commands) {
        std::string options;
        for (const OptionText& option : command.options) {
            if (!isPositional(option)) {
                options += fmt::format(" {}", fmt::join(option.names, " "));
            }
            if (!option.choices.empty()) {
                values += fmt::format("    {}:{}) words=\"{}\" ;;\n", command.name,
                                      option.names.back(), fmt::join(option.choices, " "));
            }
        }
        names += command.name.empty() ? "" : " " + command.name;
        cases += fmt::format("    \"{}\") words=\"{}\" ;;\n", command.name, options.substr(1));
    }
    return "# bash completion of calcut\n_calcut() {\n"
           "  local word=${COMP_WORDS[COMP_CWORD]} sub= words= i\n"
           "  for ((i = 1; i < COMP_CWORD; ++i)); do\n"
           "    [[ ${COMP_WORDS[i]} != -* ]] && { sub=${COMP_WORDS[i]}; break; }\n"
           "  done\n"
           "  case $sub:${COMP_WORDS[COMP_CWORD - 1]} in\n" +
           values +
           "  esac\n  if [[ -z $words && ($word == -* || -z $sub) ]]; then\n    case $sub in\n" +
           replaced(cases, "    \"", "      \"") + "    esac\n    [[ -z $sub ]] && words+=\"" +
           names +
           "\"\n  fi\n  COMPREPLY=($(compgen -W \"$words\" -- \"$word\"))\n}\n"
           "complete -o default -F _calcut calcut\n";
}

std::string zshQuoted(const std::string& text) {
    return replaced(replaced(replaced(replaced(text, "'", "'\\''"), "[", "("), "]", ")"), ":",
                    "\\:");
}

std::string zshOption(const OptionText& option) {
    std::string action;
    if (!option.value.empty()) {
        const std::string values = option.choices.empty()
                                       ? (option.value == "DIR"    ? "_files -/"
                                          : option.value == "FILE" ? "_files"
                                                                   : "")
                                       : fmt::format("({})", fmt::join(option.choices, " "));
        action = ":" + option.value + ":" + values;
    }
    std::string lines;
    for (const std::string& name : option.names) {
        lines += fmt::format("      '{}[{}]{}' \\\n", name, zshQuoted(option.text), action);
    }
    return lines;
}

std::string zshCompletion(const std::vector<CommandText>& commands) {
    std::string names, cases;
    for (const CommandText& command : commands) {
        std::string options;
        for (const OptionText& option : command.options) {
            options += isPositional(option) ? "" : zshOption(option);
        }
        if (!command.name.empty()) {
            names += fmt::format("      '{}:{}'\n", command.name, zshQuoted(command.text));
            cases += fmt::format("    {})\n    _arguments \\\n{}      '*:file:_files' ;;\n",
                                 command.name, options);
        }
    }
    return "#compdef calcut\nlocal -a subcommands\nif (( CURRENT == 2 )); then\n  subcommands=(\n" +
           names + "  )\n  _describe subcommand subcommands\nelse\n  case ${words[2]} in\n" +
           cases + "  esac\nfi\n";
}

std::string fishCompletion(const std::vector<CommandText>& commands) {
    const auto quoted = [](const std::string& text) { return replaced(text, "'", "\\'"); };
    std::string lines;
    for (const CommandText& command : commands) {
        const std::string when = command.name.empty()
                                     ? "__fish_use_subcommand"
                                     : "__fish_seen_subcommand_from " + command.name;
        if (!command.name.empty()) {
            lines += fmt::format("complete -c calcut -n __fish_use_subcommand -a {} -d '{}'\n",
                                 command.name, quoted(command.text));
        }
        for (const OptionText& option : command.options) {
            if (isPositional(option)) {
                continue;
            }
            lines += fmt::format("complete -c calcut -n '{}'", when);
            for (const std::string& name : option.names) {
                lines += isLong(name) ? " -l " + name.substr(2) : " -s " + name.substr(1);
            }
            lines += option.value.empty() ? "" : " -r";
            lines += option.choices.empty()
                         ? ""
                         : fmt::format(" -f -a '{}'", fmt::join(option.choices, " "));
            lines += fmt::format(" -d '{}'\n", quoted(option.text));
        }
    }
    return lines;
}

}  // namespace

int generateTexts(const std::vector<CommandText>& commands, const std::string& directory) {
    const auto write = [&directory](const std::string& name, const std::string& text) {
        return writeOutput(directory + "/" + name,
                           {reinterpret_cast<const std::uint8_t*>(text.data()), text.size()});
    };
    bool good = write("calcut.bash", bashCompletion(commands)) &&
                write("_calcut", zshCompletion(commands)) &&
                write("calcut.fish", fishCompletion(commands));
    for (const CommandText& command : commands) {
        const std::string page =
            command.name.empty() ? "calcut.1" : "calcut-" + command.name + ".1";
        good = good && write(page, manPage(commands, command));
    }
    return good ? exitOk : exitFailed;
}

}  // namespace calcut::tools
