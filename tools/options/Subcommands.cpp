#include <algorithm>
#include <cmath>
#include <iterator>
#include <memory>

#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>

#include "cutter/korvelineImage.h"
#include "tools/cut/Cut.h"
#include "tools/export/Export.h"
#include "tools/inspect/Inspect.h"
#include "tools/make/Make.h"
#include "tools/options/CommandLine.h"
#include "tools/options/words.h"
#include "tools/plot/Launch.h"

namespace calcut::tools {

namespace {

constexpr const char* oneModule = "Dump, packed calibration, or - for standard input";

template <class Target>
CLI::Option* addValue(CLI::App& command, const char* names, Target& target, const char* type,
                      const char* text) {
    return command.add_option(names, target, text)->type_name(type);
}

/// An option that takes one of some words; store gets its place among them.
CLI::Option* addChoice(CLI::App& command, const char* name, const std::vector<std::string>& words,
                       const std::function<void(std::size_t)>& store, const char* type,
                       const char* text) {
    const auto storeWord = [words, store](const std::string& word) {
        store(static_cast<std::size_t>(std::ranges::find(words, word) - words.begin()));
    };
    return command.add_option_function<std::string>(name, storeWord, text)
        ->check(CLI::IsMember(words))
        ->type_name(type);
}

/// -q, -v and --color.
void addTerminalOptions(CLI::App& command, TerminalSettings& settings) {
    const auto set = [&settings](Verbosity verbosity) {
        return [&settings, verbosity] { settings.verbosity = verbosity; };
    };
    const auto setColour = [&settings](std::size_t mode) { settings.colour = ColourMode(mode); };
    for (CLI::Option* option :
         {command.add_flag_callback("-q,--quiet", set(Verbosity::Quiet), "Print errors only"),
          command.add_flag_callback("-v,--verbose", set(Verbosity::Verbose),
                                    "Print what is being done"),
          addChoice(command, "--color", {"auto", "always", "never"}, setColour, "WHEN",
                    "Colours: auto on a terminal, unless NO_COLOR is set")}) {
        option->group("Terminal");
    }
}

CLI::Option* addLayout(CLI::App& command, std::optional<Layout>& layout, const char* text) {
    const auto store = [&layout](std::size_t at) {
        layout = at == 0 ? std::nullopt : std::optional(knownLayouts[at - 1]);
    };
    return addChoice(command, "--layout", {"auto", "v7", "korveline", "packed"}, store, "LAYOUT",
                     text);
}

/// What every subcommand has that reads dumps.
template <class Options>
void addReading(CLI::App& command, Options& options) {
    addLayout(command, options.layout, "Layout of what is read; auto goes by the first bytes");
    addValue(command, "--max-size", options.maxSize, "SIZE",
             "Refuse files above this many bytes (K, M, G mean KiB, MiB, GiB) [256M]")
        ->transform(CLI::AsSizeValue(false).description(""));
}

void addStrict(CLI::App& command, bool& strict) {
    command.add_flag("--strict", strict, "Exit with 1 when there are warnings, too");
}

// -------------------------------------------------------------------------------------- cut --

void addBatchOptions(CLI::App& command, CutOptions& options) {
    CLI::Option* out = addValue(command, "--out", options.out, "DIR",
                                "Directory for many dumps, made when it is not there");
    out->group("Many dumps")->excludes(command.get_option("--verify"));
    for (CLI::Option* option :
         {addValue(command, "--files-from", options.filesFrom, "FILE",
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
                           "Leave out dumps whose folder holds their whole cut already")}) {
        option->needs(out)->group("Many dumps");
    }
}

void addCutOptions(CLI::App& command, CutOptions& options) {
    addValue(command, "DUMP", options.paths, "",
             "Dumps or folders of them, or one dump (- for standard input) and the output "
             "directory");
    addReading(command, options);
    command.add_flag("--force", options.force,
                     "Replace also what is a dump or belongs to another one");
    addStrict(command, options.strict);
    addValue(command, "--verify", options.verify, "DIR",
             "Write nothing; compare the files in DIR with the dump, byte for byte");
    addBatchOptions(command, options);
}

void checkCut(const CutOptions& options) {
    if (const std::string fault = usageFault(options); !fault.empty()) {
        throw CLI::ValidationError("cut", fault);
    }
}

// ------------------------------------------------------------- inspect, plot, compare, export --

void addInspectOptions(CLI::App& command, InspectOptions& options) {
    addValue(command, "FILE", options.paths, "",
             "Dumps, packed calibrations, or - for standard input")
        ->required();
    command.add_flag("--json", options.json, "Print JSON (keys: docs/inspect-json.md)");
    addReading(command, options);
    addStrict(command, options.strict);
}

std::string pictureFault(const std::string& name) {
    return isPictureName(name) ? "" : "the picture's name must end in .png or .svg";
}

void addPlotOptions(CLI::App& command, PlotOptions& options) {
    addValue(command, "FILE", options.input, "", oneModule)->required();
    addValue(command, "-o,--output", options.output, "FILE",
             "Picture to write: NAME.png or NAME.svg; - writes a PNG to standard output")
        ->required()
        ->check(pictureFault);
    addReading(command, options);
    command.add_flag("--shared-scale", options.sharedScale,
                     "One colour scale for the tables of all frequencies");
}

std::string toleranceFault(const std::string& text) {
    double value = 0.0;
    const bool isTolerance =
        CLI::detail::lexical_cast(text, value) && std::isfinite(value) && value >= 0;
    return isTolerance ? "" : "give a number from 0 on, not " + text;
}

void addCompareOptions(CLI::App& command, CompareOptions& options) {
    addValue(command, "A", options.a, "FILE", oneModule)->required();
    addValue(command, "B", options.b, "FILE", "The one to compare it with, likewise")->required();
    command.add_flag("--json", options.json, "Print JSON (keys: docs/compare-json.md)");
    addValue(
        command, "--tolerance", options.tolerance, "T",
        "Largest absolute difference that counts as equal, for every value stored as a float "
        "(lens, tables, rays, PSF, ...); mask, integers, texts and custom fields must be equal")
        ->check(toleranceFault);
    addValue(command, "-o,--output", options.output, "FILE",
             "Draw the differences of the tables: NAME.png or NAME.svg")
        ->check([](const std::string& name) { return pictureFault(name == "-" ? "" : name); });
    addReading(command, options);
}

void checkCompare(const CompareOptions& options) {
    if (options.a == "-" && options.b == "-") {
        throw CLI::ValidationError("compare", "only one of the two can be standard input");
    }
}

int compare(const CompareOptions& options) {
    return options.output.empty() ? runCompare(options, nullptr) : launchCompare(options);
}

void addExportOptions(CLI::App& command, ExportOptions& options) {
    addValue(command, "DUMP", options.input, "FILE", oneModule)->required();
    addValue(command, "DIR", options.directory, "DIR", "Directory to write into")->required();
    const auto store = [&options](std::size_t at) { options.format = ExportFormat(at); };
    addChoice(command, "--as", {"npy", "csv", "pgm", "opencv-yaml", "ros-yaml", "json"}, store,
              "FORMAT", "What to write")
        ->required();
    command.add_flag("--force", options.force, "Replace files that exist");
    addReading(command, options);
}

// ------------------------------------------------------------------------------------- make --

// Negative numbers would come out as huge ones.
std::string seedFault(const std::string& text) {
    const bool isWhole = text.find_first_not_of("0123456789") == std::string::npos;
    return isWhole ? "" : "give a whole number from 0 on, not " + text;
}

void addContentOptions(CLI::App& command, MakeOptions& options) {
    writer::CalibrationOptions& content = options.content;
    command.add_option("--size")
        ->description("Columns and rows of the sensor [224x172]")
        ->check([&content](const std::string& text) { return parseSize(text, content); })
        ->type_name("WxH");
    addValue(command, "--frequencies", content.frequencies, "N", "Modulation frequencies [3]")
        ->check(CLI::Range(1U, 8U));
    command.add_flag_callback(
        "--no-straylight", [&content] { content.straylight = false; },
        "Leave the straylight profile out");
    addValue(command, "--custom", content.custom, "N", "Custom blocks [2]")
        ->check(CLI::Range(0U, 5U));
    addValue(command, "--table-bits", options.tableBits, "N",
             "Bits of a value in the per-pixel tables, 0 for plain floats (12; for Korveline the "
             "widest up to 12 that fit)")
        ->check(CLI::Range(0U, 31U));
    addValue(command, "--straylight-exponent", content.straylightExponent, "P",
             "Exponent of the straylight distance norm, 2 is Euclidean [2]")
        ->check(CLI::PositiveNumber);
    addValue(command, "--seed", content.seed, "N",
             "Seed of everything that varies between modules [1]")
        ->check(seedFault);
}

void addMakeOptions(CLI::App& command, MakeOptions& options) {
    CLI::Option* layout =
        addLayout(command, options.layout, "Layout of the dump; auto is v7, packed has no image");
    addValue(command, "--signature", options.signature, "N",
             "Put a signature of N bytes behind a Korveline payload (0: an area without "
             "signature, which no cut accepts)")
        ->check(CLI::Range(0U, unsigned{image::korveline::maxSignature}));
    addContentOptions(command, options);
    command
        .add_flag_callback(
            "--bare", [&options] { options.layout = Layout::Packed; },
            "The same as --layout packed")
        ->excludes(layout);
    addValue(command, "-o,--output", options.output, "FILE", "File to write, - for standard output")
        ->required();
    command.add_flag("--force", options.force, "Replace a file that exists");
}

void checkMake(const MakeOptions& options) {
    if (options.signature && options.layout != Layout::Korveline) {
        throw CLI::ValidationError("--signature", "only Korveline dumps carry a signature");
    }
}

// ---------------------------------------------------------------------------------- all of it --

/// check throws what is wrong with the options among themselves; run returns the exit status.
template <class Options>
void addSubcommand(
    CLI::App& app, Request& request, const words::Help& help,
    void (*addOptions)(CLI::App&, Options&), int (*run)(const Options&),
    void (*check)(const Options&) = [](const Options&) {}) {
    CLI::App* command = app.add_subcommand(help.name, help.summary);
    command->footer(help.footer);
    const auto options = std::make_shared<Options>();
    addOptions(*command, *options);
    addTerminalOptions(*command, request.terminal);
    command->callback([&request, options, run, check] {
        check(*options);
        request.work = [options, run] { return run(*options); };
    });
}

}  // namespace

void addSubcommands(CLI::App& app, Request& request) {
    app.footer(words::command.footer)->require_subcommand(1);
    addTerminalOptions(app, request.terminal);
    addSubcommand(app, request, words::cut, addCutOptions, runCut, checkCut);
    addSubcommand(app, request, words::inspect, addInspectOptions, runInspect);
    addSubcommand(app, request, words::plot, addPlotOptions, launchPlot);
    addSubcommand(app, request, words::compare, addCompareOptions, compare, checkCompare);
    addSubcommand(app, request, words::exports, addExportOptions, runExport);
    addSubcommand(app, request, words::make, addMakeOptions, runMake, checkMake);
}

}  // namespace calcut::tools
