#include "tools/options/ModuleOptions.h"

#include <algorithm>
#include <cmath>
#include <iterator>

#include "tools/options/footers.h"
#include "tools/plot/Plot.h"

namespace calcut::tools {

namespace {

CLI::Validator tolerance() {
    return {[](std::string& text) -> std::string {
                double value = 0.0;
                return CLI::detail::lexical_cast(text, value) && std::isfinite(value) && value >= 0
                           ? ""
                           : "give a number from 0 on, not " + text;
            },
            ""};
}

}  // namespace

CLI::App* addCompare(CLI::App& app, CompareOptions& options) {
    CLI::App* command = app.add_subcommand("compare", "Show how two modules differ");
    command->footer(footers::compare);
    addValue(*command, "A", options.a, "FILE", "Dump, packed calibration, or - for standard input")
        ->required();
    addValue(*command, "B", options.b, "FILE", "The one to compare it with, likewise")->required();
    command->add_flag("--json", options.json, "Print JSON (keys: docs/compare-json.md)");
    addValue(
        *command, "--tolerance", options.tolerance, "T",
        "Largest absolute difference that counts as equal, for every value stored as a float "
        "(lens, tables, rays, PSF, ...); mask, integers, texts and custom fields must be equal")
        ->check(tolerance());
    addValue(*command, "-o,--output", options.output, "FILE",
             "Draw the differences of the tables: NAME.png or NAME.svg")
        ->check([](const std::string& name) {
            return std::string(name != "-" && isPictureName(name)
                                   ? ""
                                   : "the picture's name must end in .png or .svg");
        });
    addReading(*command, options.layout, options.maxSize);
    command->callback([&options] {
        if (options.a == "-" && options.b == "-") {
            throw CLI::ValidationError("compare", "only one of the two can be standard input");
        }
    });
    return command;
}

CLI::App* addExport(CLI::App& app, ExportOptions& options) {
    CLI::App* command =
        app.add_subcommand("export", "Write a module's tables or lens for other tools");
    command->footer(footers::exports);
    addValue(*command, "DUMP", options.input, "FILE",
             "Dump, packed calibration, or - for standard input")
        ->required();
    addValue(*command, "DIR", options.directory, "DIR", "Directory to write into")->required();
    const auto* first = std::begin(exportFormatNames);
    const auto* end = std::end(exportFormatNames);
    command
        ->add_option_function<std::string>(
            "--as",
            [&options, first, end](const std::string& name) {
                options.format =
                    static_cast<ExportFormat>(std::distance(first, std::find(first, end, name)));
            },
            "What to write")
        ->check(CLI::IsMember(Words(first, end)))
        ->required()
        ->type_name("FORMAT");
    command->add_flag("--force", options.force, "Replace files that exist");
    addReading(*command, options.layout, options.maxSize);
    return command;
}

}  // namespace calcut::tools
