#include "tools/options/CommandLine.h"

#include <algorithm>
#include <cstdio>
#include <optional>
#include <string>

#include <fmt/format.h>

#include "cutter/korvelineImage.h"
#include "tools/commands.h"
#include "tools/cut/Cut.h"
#include "tools/inspect/Inspect.h"
#include "tools/make/Make.h"
#include "tools/options/CommandTexts.h"
#include "tools/options/footers.h"
#include "tools/options/ModuleOptions.h"
#include "tools/options/SharedOptions.h"
#include "tools/options/Suggestion.h"
#include "tools/plot/Plot.h"
#include "tools/terminal/Escape.h"
#include "tools/terminal/Terminal.h"

namespace calcut::tools {

namespace {

// All that a command line can ask for. Options of one subcommand do not touch those of another.
struct Request {
    TerminalSettings terminal;
    CutOptions cut;
    InspectOptions inspect;
    MakeOptions make;
    std::optional<Layout> madeLayout;
    PlotOptions plot;
    CompareOptions compare;
    ExportOptions exports;
};

// Negative numbers would come out as huge ones.
CLI::Validator digitsOnly() {
    return {[](const std::string& text) {
                return text.find_first_not_of("0123456789") == std::string::npos
                           ? std::string()
                           : "give a whole number from 0 on, not " + text;
            },
            ""};
}

// -------------------------------------------------------------------------------------- cut --

void addBatchOptions(CLI::App& command, CutOptions& options) {
    CLI::Option* out = addValue(command, "--out", options.out, "DIR",
                                "Directory for many dumps, made when it is not there");
    const std::initializer_list<CLI::Option*> all = {
        addValue(command, "--files-from", options.filesFrom, "FILE",
                 "Take the paths in FILE, too, one on each line (or between zero bytes); - for "
                 "standard input"),
        addValue(command, "--glob", options.glob, "PATTERN",
                 "Of folders, take only files of such a name, for instance '*.bin'"),
        addValue(command, "-j,--jobs", options.jobs, "N",
                 "Dumps cut at once (one for each processor)")
            ->check(CLI::Range(1U, 1024U)),
        addValue(command, "--report", options.report, "FILE",
                 "Write what came of each dump, by its extension as .csv or .json"),
        command.add_flag("--resume", options.resume,
                         "Leave out dumps whose folder holds their whole cut already")};
    out->group("Many dumps");
    for (CLI::Option* option : all) {
        option->needs(out)->group("Many dumps");
    }
}

CLI::App* addCut(CLI::App& app, Request& request) {
    CutOptions& options = request.cut;
    CLI::App* command = app.add_subcommand("cut", "Cut dumps into the files of the camera stack");
    command->footer(footers::cut);
    addValue(*command, "DUMP", options.paths, "",
             "Dumps or folders of them, or one dump (- for standard input) and the output "
             "directory");
    addReading(*command, options.layout, options.maxSize);
    command->add_flag("--force", options.force,
                      "Replace also what is a dump or belongs to another one");
    command->add_flag("--strict", options.strict, "Exit with 1 when there are warnings, too");
    CLI::Option* verify =
        addValue(*command, "--verify", options.verify, "DIR",
                 "Write nothing; compare the files in DIR with the dump, byte for byte");
    addBatchOptions(*command, options);
    verify->excludes(command->get_option("--out"));
    command->callback([&options] {
        if (const std::string fault = usageFault(options); !fault.empty()) {
            throw CLI::ValidationError("cut", fault);
        }
    });
    return command;
}

// ------------------------------------------------------------------------- inspect, plot, make --

CLI::App* addInspect(CLI::App& app, Request& request) {
    InspectOptions& options = request.inspect;
    CLI::App* command = app.add_subcommand(
        "inspect", "Show what dumps and packed calibrations hold, and why they do not read");
    command->footer(footers::inspect);
    addValue(*command, "FILE", options.paths, "",
             "Dumps, packed calibrations, or - for standard input")
        ->required();
    command->add_flag("--json", options.json, "Print JSON (keys: docs/inspect-json.md)");
    addReading(*command, options.layout, options.maxSize);
    command->add_flag("--strict", options.strict, "Exit with 1 when there are warnings, too");
    return command;
}

CLI::App* addPlot(CLI::App& app, Request& request) {
    PlotOptions& options = request.plot;
    CLI::App* command = app.add_subcommand("plot", "Draw a calibration on one sheet");
    command->footer(footers::plot);
    addValue(*command, "FILE", options.input, "",
             "Dump, packed calibration, or - for standard input")
        ->required();
    addValue(*command, "-o,--output", options.output, "FILE",
             "Picture to write: NAME.png or NAME.svg; - writes a PNG to standard output")
        ->required()
        ->check([](const std::string& name) {
            return std::string(isPictureName(name) ? ""
                                                   : "the picture's name must end in .png or .svg");
        });
    addReading(*command, options.layout, options.maxSize);
    command->add_flag("--shared-scale", options.sharedScale,
                      "One colour scale for the tables of all frequencies");
    return command;
}

void addContentOptions(CLI::App& command, MakeOptions& options) {
    command
        .add_option_function<std::string>(
            "--size",
            [&options](const std::string& text) {
                if (const std::string fault = parseSize(text, options); !fault.empty()) {
                    throw CLI::ValidationError("--size", fault);
                }
            },
            "Columns and rows of the sensor [224x172]")
        ->type_name("WxH");
    addValue(command, "--frequencies", options.frequencies, "N", "Modulation frequencies [3]")
        ->check(CLI::Range(1U, 8U));
    command.add_flag_callback(
        "--no-straylight", [&options] { options.straylight = false; },
        "Leave the straylight profile out");
    addValue(command, "--custom", options.custom, "N", "Custom blocks [2]")
        ->check(CLI::Range(0U, 5U));
    addValue(command, "--table-bits", options.tableBits, "N",
             "Bits of a value in the per-pixel tables, 0 for plain floats (12; for Korveline the "
             "widest up to 12 that fit)")
        ->check(CLI::Range(0U, 31U));
    addValue(command, "--straylight-exponent", options.straylightExponent, "P",
             "Exponent of the straylight distance norm, 2 is Euclidean [2]")
        ->check(CLI::PositiveNumber);
    addValue(command, "--seed", options.seed, "N",
             "Seed of everything that varies between modules [1]")
        ->check(digitsOnly());
}

CLI::App* addMake(CLI::App& app, Request& request) {
    MakeOptions& options = request.make;
    CLI::App* command = app.add_subcommand("make", "Make a dump with a plausible calibration");
    command->footer(footers::make);
    CLI::Option* layout = addLayout(*command, request.madeLayout,
                                    "Layout of the dump; auto is v7, packed has no image");
    command
        ->add_option("--signature", options.signature,
                     "Put a signature of N bytes behind a Korveline payload (0: an area without "
                     "signature, which no cut accepts)")
        ->check(CLI::Range(0U, static_cast<unsigned>(image::korveline::maxSignature)))
        ->type_name("N");
    addContentOptions(*command, options);
    command
        ->add_flag_callback(
            "--bare", [&request] { request.madeLayout = Layout::Packed; },
            "The same as --layout packed")
        ->excludes(layout);
    addValue(*command, "-o,--output", options.output, "FILE",
             "File to write, - for standard output")
        ->required();
    command->add_flag("--force", options.force, "Replace a file that exists");
    command->callback([&options, &request] {
        options.layout = request.madeLayout.value_or(Layout::V7);
        if (options.signature && options.layout != Layout::Korveline) {
            throw CLI::ValidationError("--signature", "only Korveline dumps carry a signature");
        }
    });
    return command;
}

// ------------------------------------------------------------------------------ the whole line --

int tellParseError(CLI::App& app, const CLI::ParseError& error) {
    if (error.get_exit_code() == static_cast<int>(CLI::ExitCodes::Success)) {
        const bool version = error.get_name() == "CallForVersion";
        const std::string text = version ? error.what() + std::string("\n") : app.help();
        (void)std::fwrite(text.data(), 1, text.size(), stdout);
        return exitOk;
    }
    const auto parsed = app.get_subcommands();
    Words subcommands;
    for (const CLI::App* command : app.get_subcommands({})) {
        subcommands.push_back(command->get_name());
    }
    const auto unknown = app.remaining();
    const std::string what =
        parsed.empty() && !unknown.empty()
            ? "no such subcommand: " + unknown.front() + suggestion(unknown.front(), subcommands)
            : error.what();
    printError("", fmt::format("{} (calcut {}--help shows how)", escapePath(what),
                               parsed.empty() ? "" : parsed.front()->get_name() + " "));
    return exitUsage;
}

OptionText textOf(const CLI::Option& option) {
    OptionText text;
    for (const std::string& name : option.get_snames()) {
        text.names.push_back("-" + name);
    }
    for (const std::string& name : option.get_lnames()) {
        text.names.push_back("--" + name);
    }
    if (text.names.empty()) {
        text.names.push_back(option.get_name(true));
    }
    text.text = option.get_description();
    if (option.get_items_expected_max() == 0) {
        return text;
    }
    // "WHEN:{auto,always,never}"
    const std::string value = option.get_type_name();
    text.value = value.substr(0, value.find(':'));
    const std::size_t open = value.find('{');
    if (open != std::string::npos) {
        text.choices = CLI::detail::split(value.substr(open + 1, value.find('}') - open - 1), ',');
    }
    return text;
}

CommandText textOf(const CLI::App& command, bool isSubcommand) {
    CommandText text{isSubcommand ? command.get_name() : "",
                     command.get_description(),
                     command.get_footer(),
                     {}};
    for (const CLI::Option* option : command.get_options()) {
        text.options.push_back(textOf(*option));
    }
    return text;
}

int generate(CLI::App& app, const std::string& directory) {
    std::vector<CommandText> texts = {textOf(app, false)};
    for (const CLI::App* command : app.get_subcommands({})) {
        texts.push_back(textOf(*command, true));
    }
    return generateTexts(texts, directory);
}

}  // namespace

int runCommandLine(int argc, char** argv) {
    Request request;
    CLI::App app("Cuts EEPROM dumps of depth camera modules, and shows what is in them.", "calcut");
    app.set_version_flag("-V,--version", "calcut " CALCUT_VERSION, "Print the version and exit");
    app.require_subcommand(1);
    app.footer(footers::command);
    const CLI::App* cut = addCut(app, request);
    const CLI::App* inspect = addInspect(app, request);
    const CLI::App* plot = addPlot(app, request);
    const CLI::App* compare = addCompare(app, request.compare);
    const CLI::App* exports = addExport(app, request.exports);
    addMake(app, request);
    addTerminalOptions(app, request.terminal);
    for (CLI::App* command : app.get_subcommands({})) {
        addTerminalOptions(*command, request.terminal);
    }
    // For the build, which makes man pages and completions of these texts.
    if (argc == 3 && std::string_view(argv[1]) == "--generate") {
        return generate(app, argv[2]);
    }
    // No option takes one, and as a path it would be a riddle.
    if (std::any_of(argv + 1, argv + argc, [](const char* word) { return *word == '\0'; })) {
        printError("", "an argument is empty (is a variable of the shell not set?)");
        return exitUsage;
    }
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return tellParseError(app, error);
    }
    setTerminal(request.terminal);
    if (app.got_subcommand(cut)) {
        return runCut(request.cut);
    }
    if (app.got_subcommand(inspect)) {
        return runInspect(request.inspect);
    }
    if (app.got_subcommand(compare)) {
        return request.compare.output.empty() ? runCompare(request.compare, nullptr)
                                              : runCompareAndDraw(request.compare);
    }
    if (app.got_subcommand(exports)) {
        return runExport(request.exports);
    }
    return app.got_subcommand(plot) ? runPlot(request.plot) : runMake(request.make);
}

}  // namespace calcut::tools
