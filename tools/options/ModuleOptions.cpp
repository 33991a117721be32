#include "tools/options/ModuleOptions.h"

#include <algorithm>
#include <cmath>
#include <iterator>

#include "tools/options/footers.h"

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
    command->add_option("A", options.a, "Dump, packed calibration, or - for standard input")
        ->required()
        ->type_name("FILE");
    command->add_option("B", options.b, "The one to compare it with, likewise")
        ->required()
        ->type_name("FILE");
    command->add_flag("--json", options.json, "Print JSON (keys: docs/compare-json.md)");
    command
        ->add_option("--tolerance", options.tolerance,
                     "Largest absolute difference that counts as equal, for every value stored as "
                     "a float (lens, tables, rays, PSF, ...); mask, integers, texts and custom "
                     "fields must be equal")
        ->check(tolerance())
        ->type_name("T");
    command
        ->add_option("-o,--output", options.output,
                     "Draw the differences of the tables: NAME.png or NAME.svg")
        ->check(pictureName())
        ->type_name("FILE");
    addLayout(*command, options.layout, "Layout of both files; auto goes by their first bytes");
    addMaxSize(*command, options.maxSize);
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
    command->add_option("DUMP", options.input, "Dump, packed calibration, or - for standard input")
        ->required()
        ->type_name("FILE");
    command->add_option("DIR", options.directory, "Directory to write into")
        ->required()
        ->type_name("DIR");
    command
        ->add_option_function<std::string>(
            "--as",
            [&options](const std::string& name) {
                const auto* found =
                    std::find(std::begin(exportFormatNames), std::end(exportFormatNames), name);
                options.format =
                    static_cast<ExportFormat>(std::distance(std::begin(exportFormatNames), found));
            },
            "What to write")
        ->check(CLI::IsMember(
            std::vector<std::string>(std::begin(exportFormatNames), std::end(exportFormatNames))))
        ->required()
        ->type_name("FORMAT");
    command->add_flag("--force", options.force, "Replace files that exist");
    addLayout(*command, options.layout, "Layout of the file; auto goes by its first bytes");
    addMaxSize(*command, options.maxSize);
    return command;
}

}  // namespace calcut::tools
