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
        ->check(CLI::IsMember(std::vector<std::string>{"auto", "always", "never"}))
        ->type_name("WHEN")
        ->group(group);
}

std::optional<Layout> layoutOf(const std::string& name) {
    for (const Layout layout : {Layout::V7, Layout::Korveline, Layout::Packed}) {
        if (name == layoutName(layout)) {
            return layout;
        }
    }
    return std::nullopt;
}

void addMaxSize(CLI::App& command, std::uint64_t& maxSize) {
    command
        .add_option("--max-size", maxSize,
                    "Refuse files above this many bytes (K, M, G mean KiB, MiB, GiB) [256M]")
        ->transform(CLI::AsSizeValue(false).description(""))
        ->type_name("SIZE");
}

CLI::Validator pictureName() {
    return {[](std::string& name) -> std::string {
                return name.ends_with(".png") || name.ends_with(".svg")
                           ? ""
                           : "the picture's name must end in .png or .svg";
            },
            ""};
}

}  // namespace calcut::tools
