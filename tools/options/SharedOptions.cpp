#include "tools/options/SharedOptions.h"

namespace calcut::tools {

void addTerminalOptions(CLI::App& command, TerminalSettings& settings) {
    const char* group = "Terminal";
    const auto set = [&settings](Verbosity verbosity) {
        return [&settings, verbosity] { settings.verbosity = verbosity; };
    };
    command.add_flag_callback("-q,--quiet", set(Verbosity::Quiet), "Print errors only")
        ->group(group);
    command.add_flag_callback("-v,--verbose", set(Verbosity::Verbose), "Print what is being done")
        ->group(group);
    command
        .add_option_function<std::string>(
            "--color",
            [&settings](const std::string& when) {
                settings.colour = when == "always"  ? ColourMode::Always
                                  : when == "never" ? ColourMode::Never
                                                    : ColourMode::Auto;
            },
            "Colours: auto on a terminal, unless NO_COLOR is set")
        ->check(CLI::IsMember(Words{"auto", "always", "never"}))
        ->type_name("WHEN")
        ->group(group);
}

CLI::Option* addLayout(CLI::App& command, std::optional<Layout>& layout, const char* text) {
    return command
        .add_option_function<std::string>(
            "--layout",
            [&layout](const std::string& name) {
                for (const Layout known : knownLayouts) {
                    layout = name == layoutName(known) ? known : layout;
                }
            },
            text)
        ->check(CLI::IsMember(Words{"auto", "v7", "korveline", "packed"}))
        ->type_name("LAYOUT");
}

void addReading(CLI::App& command, std::optional<Layout>& layout, std::uint64_t& maxSize) {
    addLayout(command, layout, "Layout of what is read; auto goes by the first bytes");
    addValue(command, "--max-size", maxSize, "SIZE",
             "Refuse files above this many bytes (K, M, G mean KiB, MiB, GiB) [256M]")
        ->transform(CLI::AsSizeValue(false).description(""));
}

}  // namespace calcut::tools
