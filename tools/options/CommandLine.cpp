#include "tools/options/CommandLine.h"

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <numeric>
#include <optional>
#include <string>

#include <fmt/format.h>

#include "cutter/korvelineImage.h"
#include "tools/commands.h"
#include "tools/cut/Cut.h"
#include "tools/cut/Report.h"
#include "tools/inspect/Inspect.h"
#include "tools/make/Make.h"
#include "tools/options/CommandTexts.h"
#include "tools/options/footers.h"
#include "tools/options/ModuleOptions.h"
#include "tools/options/SharedOptions.h"
#include "tools/plot/Launch.h"
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

void checkCut(const CutOptions& options) {
    if (!options.verify.empty()) {
        if (options.paths.size() != 1) {
            throw CLI::ValidationError("--verify", "give the directory and one DUMP");
        }
    } else if (options.out.empty()) {
        if (options.paths.size() != 2) {
            throw CLI::ValidationError(
                "cut", "give one DUMP and its output directory, or DUMPs and --out DIR");
        }
    } else if (options.paths.empty() && options.filesFrom.empty()) {
        throw CLI::ValidationError("cut", "give a DUMP, a folder of them, or --files-from");
    }
    if (!options.report.empty() && !Report::supports(options.report)) {
        throw CLI::ValidationError("--report", "the file must end in .csv or .json");
    }
}

void addBatchOptions(CLI::App& command, CutOptions& options) {
    const char* group = "Many dumps";
    CLI::Option* out =
        command
            .add_option("--out", options.out, "Directory for many dumps, made when it is not there")
            ->type_name("DIR")
            ->group(group);
    command
        .add_option("--files-from", options.filesFrom,
                    "Take the paths in FILE, too, one on each line (or between zero bytes); - for "
                    "standard input")
        ->type_name("FILE")
        ->needs(out)
        ->group(group);
    command
        .add_option("--glob", options.glob,
                    "Of folders, take only files of such a name, for instance '*.bin'")
        ->type_name("PATTERN")
        ->needs(out)
        ->group(group);
    command.add_option("-j,--jobs", options.jobs, "Dumps cut at once (one for each processor)")
        ->check(CLI::Range(1U, 1024U))
        ->type_name("N")
        ->needs(out)
        ->group(group);
    command
        .add_option("--report", options.report,
                    "Write what came of each dump, by its extension as .csv or .json")
        ->type_name("FILE")
        ->needs(out)
        ->group(group);
    command
        .add_flag("--resume", options.resume,
                  "Leave out dumps whose folder holds their whole cut already")
        ->needs(out)
        ->group(group);
}

CLI::App* addCut(CLI::App& app, Request& request) {
    CutOptions& options = request.cut;
    CLI::App* command = app.add_subcommand("cut", "Cut dumps into the files of the camera stack");
    command->footer(footers::cut);
    command
        ->add_option("DUMP", options.paths,
                     "Dumps or folders of them, or one dump (- for standard input) and the output "
                     "directory")
        ->type_name("FILE");
    addLayout(*command, options.layout, "Layout of the dumps; auto goes by their first bytes");
    addMaxSize(*command, options.maxSize);
    command->add_flag("--force", options.force,
                      "Replace also what is a dump or belongs to another one");
    command->add_flag("--strict", options.strict, "Exit with 1 when there are warnings, too");
    CLI::Option* verify =
        command
            ->add_option("--verify", options.verify,
                         "Write nothing; compare the files in DIR with the dump, byte for byte")
            ->type_name("DIR");
    addBatchOptions(*command, options);
    verify->excludes(command->get_option("--out"));
    command->callback([&options] { checkCut(options); });
    return command;
}

// ------------------------------------------------------------------------- inspect, plot, make --

CLI::App* addInspect(CLI::App& app, Request& request) {
    InspectOptions& options = request.inspect;
    CLI::App* command = app.add_subcommand(
        "inspect", "Show what dumps and packed calibrations hold, and why they do not read");
    command->footer(footers::inspect);
    command
        ->add_option("FILE", options.paths, "Dumps, packed calibrations, or - for standard input")
        ->required()
        ->type_name("FILE");
    command->add_flag("--json", options.json, "Print JSON (keys: docs/inspect-json.md)");
    addLayout(*command, options.layout, "Layout of the files; auto goes by their first bytes");
    addMaxSize(*command, options.maxSize);
    command->add_flag("--strict", options.strict, "Exit with 1 when there are warnings, too");
    return command;
}

CLI::App* addPlot(CLI::App& app, Request& request) {
    PlotOptions& options = request.plot;
    CLI::App* command = app.add_subcommand("plot", "Draw a calibration on one sheet");
    command->footer(footers::plot);
    command->add_option("FILE", options.input, "Dump, packed calibration, or - for standard input")
        ->required()
        ->type_name("FILE");
    command
        ->add_option("-o,--output", options.output,
                     "Picture to write: NAME.png or NAME.svg; - writes a PNG to standard output")
        ->required()
        ->type_name("FILE")
        ->check([](const std::string& name) -> std::string {
            const std::size_t dot = name.find_last_of('.');
            const std::string ending = dot == std::string::npos ? "" : name.substr(dot);
            return name == "-" || ending == ".png" || ending == ".svg"
                       ? ""
                       : "the picture's name must end in .png or .svg";
        });
    addLayout(*command, options.layout, "Layout of the file; auto goes by its first bytes");
    addMaxSize(*command, options.maxSize);
    command->add_flag("--shared-scale", options.sharedScale,
                      "One colour scale for the tables of all frequencies");
    return command;
}

void parseSize(const std::string& text, MakeOptions& options) {
    const char* end = text.data() + text.size();
    const auto columns = std::from_chars(text.data(), end, options.columns);
    const bool cross = columns.ec == std::errc() && columns.ptr != end && *columns.ptr == 'x';
    const auto rows = cross ? std::from_chars(columns.ptr + 1, end, options.rows) : columns;
    if (!cross || rows.ec != std::errc() || rows.ptr != end || options.columns == 0 ||
        options.rows == 0) {
        throw CLI::ValidationError(
            "--size",
            "give columns and rows of 1 to 65535 each, for instance 224x172, not " + text);
    }
    const std::uint64_t pixels = std::uint64_t{options.columns} * options.rows;
    if (pixels > mostMadePixels || pixels < leastMadePixels) {
        throw CLI::ValidationError("--size", fmt::format("{} has {} pixels, not {} to {}", text,
                                                         pixels, leastMadePixels, mostMadePixels));
    }
}

void addContentOptions(CLI::App& command, MakeOptions& options) {
    command
        .add_option_function<std::string>(
            "--size", [&options](const std::string& text) { parseSize(text, options); },
            "Columns and rows of the sensor [224x172]")
        ->type_name("WxH");
    command.add_option("--frequencies", options.frequencies, "Modulation frequencies [3]")
        ->check(CLI::Range(1U, 8U))
        ->type_name("N");
    command.add_flag("--no-straylight{false}", options.straylight,
                     "Leave the straylight profile out");
    command.add_option("--custom", options.custom, "Custom blocks [2]")
        ->check(CLI::Range(0U, 5U))
        ->type_name("N");
    command
        .add_option("--table-bits", options.tableBits,
                    "Bits of a value in the per-pixel tables, 0 for plain floats (12; for "
                    "Korveline the widest up to 12 that fit)")
        ->check(CLI::Range(0U, 31U))
        ->type_name("N");
    command
        .add_option("--straylight-exponent", options.straylightExponent,
                    "Exponent of the straylight distance norm, 2 is Euclidean [2]")
        ->check(CLI::PositiveNumber)
        ->type_name("P");
    command
        .add_option("--seed", options.seed, "Seed of everything that varies between modules [1]")
        ->check(digitsOnly())
        ->type_name("N");
}

CLI::App* addMake(CLI::App& app, Request& request) {
    MakeOptions& options = request.make;
    CLI::App* command = app.add_subcommand("make", "Make a dump with a plausible calibration");
    command->footer(footers::make);
    CLI::Option* layout =
        addLayout(*command, options.layout, "Layout of the dump; auto is v7, packed has no image");
    command
        ->add_option("--signature", options.signature,
                     "Put a signature of N bytes behind a Korveline payload (0: an area without "
                     "signature, which no cut accepts)")
        ->check(CLI::Range(0U, static_cast<unsigned>(image::korveline::maxSignature)))
        ->type_name("N");
    addContentOptions(*command, options);
    command
        ->add_flag_callback(
            "--bare", [&options] { options.layout = Layout::Packed; },
            "The same as --layout packed")
        ->excludes(layout);
    command->add_option("-o,--output", options.output, "File to write, - for standard output")
        ->required()
        ->type_name("FILE");
    command->add_flag("--force", options.force, "Replace a file that exists");
    command->callback([&options] {
        if (options.signature && options.layout != Layout::Korveline) {
            throw CLI::ValidationError("--signature", "only Korveline dumps carry a signature");
        }
    });
    return command;
}

// ------------------------------------------------------------------------------ the whole line --

std::size_t editDistance(std::string_view one, std::string_view other) {
    std::vector<std::size_t> row(other.size() + 1);
    std::iota(row.begin(), row.end(), std::size_t{0});
    for (std::size_t i = 0; i < one.size(); ++i) {
        std::size_t diagonal = row[0]++;
        for (std::size_t j = 0; j < other.size(); ++j) {
            const std::size_t changed = diagonal + (one[i] == other[j] ? 0 : 1);
            diagonal = row[j + 1];
            row[j + 1] = std::min({changed, row[j] + 1, diagonal + 1});
        }
    }
    return row.back();
}

// " (did you mean ...?)" for the subcommand that is nearest to a word, if any is near.
std::string suggestion(CLI::App& app, const std::string& word) {
    std::string best;
    std::size_t least = std::max<std::size_t>(2, word.size() / 2);
    for (const CLI::App* command : app.get_subcommands({})) {
        const std::size_t distance = editDistance(word, command->get_name());
        const bool begun = command->get_name().rfind(word, 0) == 0;
        if (begun || distance < least) {
            least = begun ? 0 : distance;
            best = command->get_name();
        }
    }
    return best.empty() ? std::string() : fmt::format(" (did you mean {}?)", best);
}

int tellParseError(CLI::App& app, const CLI::ParseError& error) {
    if (error.get_exit_code() == static_cast<int>(CLI::ExitCodes::Success)) {
        const bool version = error.get_name() == "CallForVersion";
        const std::string text = version ? error.what() + std::string("\n") : app.help();
        (void)std::fwrite(text.data(), 1, text.size(), stdout);
        return exitOk;
    }
    const auto parsed = app.get_subcommands();
    const auto unknown = app.remaining();
    const std::string what =
        parsed.empty() && !unknown.empty()
            ? "no such subcommand: " + unknown.front() + suggestion(app, unknown.front())
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
                                              : launchCompare(request.compare);
    }
    if (app.got_subcommand(exports)) {
        return runExport(request.exports);
    }
    return app.got_subcommand(plot) ? launchPlot(request.plot) : runMake(request.make);
}

}  // namespace calcut::tools
