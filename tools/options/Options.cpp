#include "tools/options/Options.h"

#include <algorithm>
#include <cmath>
#include <map>
#include <memory>

#include <fmt/format.h>
#include <CLI/CLI.hpp>

#include "cutter/korvelineImage.h"
#include "tools/compare/Compare.h"
#include "tools/cut/Cut.h"
#include "tools/export/Export.h"
#include "tools/inspect/Inspect.h"
#include "tools/make/Make.h"
#include "tools/module/Layout.h"
#include "tools/options/Help.h"
#include "tools/plot/Plot.h"

namespace calcut::options {

namespace {

constexpr const char* strictText = "Exit with 1 when there are warnings, too";

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
void addTerminalOptions(CLI::App& command, text::TerminalSettings& settings) {
    command.option_defaults()->group("Terminal");
    const auto quiet = [&settings] { settings.verbosity = text::Verbosity::Quiet; };
    const auto verbose = [&settings] { settings.verbosity = text::Verbosity::Verbose; };
    command.add_flag_callback("-q,--quiet", quiet, "Print errors only");
    command.add_flag_callback("-v,--verbose", verbose, "Print what is being done");
    const auto set = [&settings](std::size_t at) { settings.colour = text::ColourMode(at); };
    addChoice(command, "--color", {"auto", "always", "never"}, set, "WHEN",
              "Colours: auto on a terminal, unless NO_COLOR is set");
}

CLI::Option* addLayout(CLI::App& command, std::optional<module::Layout>& layout, const char* text) {
    std::vector<std::string> words = {"auto"};
    std::ranges::transform(module::knownLayouts(), std::back_inserter(words),
                           &module::Layout::name);
    const auto set = [&layout](std::size_t at) {
        layout = at == 0 ? std::nullopt : std::optional(module::knownLayouts()[at - 1]);
    };
    return addChoice(command, "--layout", words, set, "LAYOUT", text);
}

// Negative numbers would come out as huge ones.
std::string wholeNumberFault(const std::string& text) {
    const bool isWhole = text.find_first_not_of("0123456789") == std::string::npos;
    return isWhole ? "" : "give a whole number from 0 on, not " + text;
}

/// What every subcommand has that reads dumps.
void addReading(CLI::App& command, module::Reading& reading) {
    addLayout(command, reading.layout, "Layout of what is read; auto goes by the first bytes");
    addValue(command, "--max-size", reading.intake.maxSize, "SIZE",
             "Refuse files above this many bytes (K, M, G mean KiB, MiB, GiB) [256M]")
        ->transform(CLI::AsSizeValue(false).description(""));
    addValue(command, "--skip", reading.intake.skip, "BYTES",
             "Leave out so many bytes at the start of each file; offsets count from there")
        ->check(wholeNumberFault);
    const auto swap = [&reading](std::size_t at) { reading.intake.swap = at == 0 ? 2 : 4; };
    addChoice(command, "--swap", {"2", "4"}, swap, "BYTES",
              "Turn the bytes of each pair, or of each four, around");
}

// -------------------------------------------------------------------------------------- cut --

void addCutOptions(CLI::App& command, cut::CutOptions& options) {
    addValue(command, "DUMP", options.paths, "",
             "Dumps or folders of them, or one dump (- for standard input) and the output "
             "directory");
    addReading(command, options.reading);
    command.add_flag("--force", options.force,
                     "Also replace a file that is a dump, and the folder of another dump");
    command.add_flag("--strict", options.strict, strictText);
    command.add_flag("--verify", options.verify,
                     "Write nothing; compare the files in the directory, or in those under --out, "
                     "with the dumps, byte for byte");
    CLI::Option* out = addValue(command, "--out", options.out, "DIR",
                                "Directory for many dumps, made when it is not there");
    out->group("Many dumps");
    for (CLI::Option* option :
         {addValue(command, "--files-from", options.filesFrom, "FILE",
                   "Take the paths in FILE, too, one on each line (or between zero bytes); - for "
                   "standard input"),
          addValue(command, "--glob", options.glob, "PATTERN",
                   "Of folders, take only files of such a name, for instance '*.bin'"),
          addValue(command, "--name", options.name, "TEMPLATE",
                   "Names of the directories, with {stem}, {path}, {serial}, {text0} to {text2} "
                   "or {id} (after the dumps)"),
          addValue(command, "-j,--jobs", options.jobs, "N",
                   "Dumps cut at once (one for each processor)")
              ->check(CLI::Range(1U, 1024U)),
          addValue(command, "--report", options.report, "FILE",
                   "Write the result of each dump to FILE.csv or FILE.json; - writes CSV to "
                   "standard output instead of the summary"),
          command.add_flag("--resume", options.resume,
                           "Leave out dumps whose folder holds their whole cut already")}) {
        option->needs(out)->group("Many dumps");
    }
}

// ------------------------------------------------------------- inspect, plot, compare, export --

void addInspectOptions(CLI::App& command, inspect::InspectOptions& options) {
    addValue(command, "FILE", options.paths, "",
             "Dumps, packed calibrations, folders of them, or - for standard input")
        ->required();
    CLI::Option* json =
        command.add_flag("--json", options.json, "Print JSON (keys: docs/inspect-json.md)");
    command.add_flag("--jsonl", options.jsonl, "Print JSON, one object on each line")
        ->excludes(json);
    addReading(command, options.reading);
    command.add_flag("--strict", options.strict, strictText);
}

std::string pictureFault(const std::string& name) {
    return plot::isPictureName(name) ? "" : "the picture's name must end in .png, .svg or .pdf";
}

void addPlotOptions(CLI::App& command, plot::PlotOptions& options) {
    addValue(command, "FILE", options.inputs, "",
             "Dumps, packed calibrations, folders of them, or - for standard input")
        ->required();
    addValue(command, "-o,--output", options.output, "FILE",
             "Picture to write: NAME.png, NAME.svg or NAME.pdf; {stem} in it is the dump's name "
             "without extension; - writes a PNG to standard output")
        ->required()
        ->check(pictureFault);
    addReading(command, options.reading);
    command.add_flag("--force", options.force, "Replace a picture that exists");
    command.add_flag("--shared-scale", options.sharedScale,
                     "One colour scale for the tables of all frequencies");
    command.add_flag("--damaged", options.damaged,
                     "Also draw a dump with faults, as far as it can be read; the faults are shown "
                     "in red");
}

/// An option that is given once for everything and once for each name.
void addTolerance(CLI::App& command, const char* option, std::map<std::string, double>& to,
                  const char* text) {
    const auto take = [&to](const std::vector<std::string>& given) {
        for (const std::string& tolerance : given) {
            if (const auto fault = compare::addTolerance(to, tolerance)) {
                throw CLI::ValidationError("compare", *fault);
            }
        }
    };
    command.add_option_function<std::vector<std::string>>(option, take, text)
        ->expected(1)
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll)
        ->type_name("[NAME=]T");
}

void addCompareOptions(CLI::App& command, compare::CompareOptions& options) {
    addValue(command, "FILE", options.paths, "",
             "Two files, A and B: dumps, packed calibrations, or - for standard input; with --to, "
             "all that are compared with it, folders too")
        ->required();
    command.add_flag("--json", options.json, "Print JSON (keys: docs/compare-json.md)");
    addTolerance(
        command, "--tolerance", options.tolerances.absolute,
        "Largest absolute difference that counts as equal, for every value stored as a float "
        "(lens, tables, rays, PSF, ...), or for one table, lens or values: psf=1e-7; mask, "
        "integers, texts and custom fields must be equal");
    addTolerance(command, "--rtol", options.tolerances.relative,
                 "The same as a fraction of the magnitude in A; added to --tolerance");
    addValue(command, "-o,--output", options.output, "FILE",
             "Draw the differences of the tables: NAME.png, NAME.svg or NAME.pdf")
        ->check([](const std::string& name) { return pictureFault(name == "-" ? "" : name); });
    addReading(command, options.reading);
    command.add_flag("--force", options.force, "Replace files that exist");
    CLI::Option* to = addValue(command, "--to", options.to, "FILE",
                               "Compare each FILE with this one, A, a golden unit for instance");
    to->group("Many modules");
    addValue(
        command, "--report", options.report, "FILE",
        "Write a CSV: for each FILE, mean, RMS and largest difference of each table and lens; - "
        "writes it to standard output instead of the summary")
        ->needs(to)
        ->group("Many modules");
}

int compare(const compare::CompareOptions& options) {
    const auto draw = [](const module::Diagnosis& a, const module::Diagnosis& b,
                         const compare::CompareOptions& of) {
        const auto all = of.tolerances.absolute.find("");
        return plot::drawDifferences(
            {a,
             b,
             {of.paths[0], of.paths[1]},
             of.reading.layout,
             all == of.tolerances.absolute.end() ? std::nullopt : std::optional(all->second),
             of.output});
    };
    return compare::runCompare(options, draw);
}

void addExportOptions(CLI::App& command, exporting::ExportOptions& options) {
    addValue(command, "DUMP", options.paths, "",
             "A dump and the directory to write into, or dumps and folders of them with --out")
        ->required();
    addValue(command, "--out", options.out, "DIR",
             "Directory for many dumps, made when it is not there");
    std::vector<std::string> words;
    std::string list;
    for (const exporting::Format& format : exporting::formats) {
        words.emplace_back(format.word);
        list += (list.empty() ? "" : "; ") + words.back() + ": " + format.help;
    }
    const auto set = [&options](std::size_t at) { options.format = &exporting::formats[at]; };
    const std::string text = "What to write; " + list;
    addChoice(command, "--as", words, set, "FORMAT", text.c_str())->required();
    command.add_flag("--force", options.force, "Replace files that exist");
    command.add_flag("--damaged", options.damaged,
                     "Also export a dump with faults, as far as it can be read; files whose format "
                     "allows it are marked");
    addReading(command, options.reading);
}

// ------------------------------------------------------------------------------------- make --

void addMakeOptions(CLI::App& command, make::MakeOptions& options) {
    writer::CalibrationOptions& content = options.content;
    CLI::Option* layout =
        addLayout(command, options.layout, "Layout of the dump; auto is v7, packed has no image");
    addValue(command, "--signature", options.signature, "N",
             "Put a signature of N bytes behind a Korveline payload (0: an area without "
             "signature, which no cut accepts)")
        ->check(CLI::Range(0U, unsigned{image::korveline::maxSignature}));
    command.add_option("--size")
        ->description("Columns and rows of the sensor [224x172]")
        ->check([&content](const std::string& text) { return make::parseSize(text, content); })
        ->type_name("WxH");
    addValue(command, "--frequencies", content.frequencies, "N", "Modulation frequencies [3]")
        ->check(CLI::Range(1U, unsigned{VANTRIC_FREQUENCIES}));
    const auto omit = [&content] { content.straylight = false; };
    command.add_flag_callback("--no-straylight", omit, "Leave the straylight profile out");
    addValue(command, "--custom", content.custom, "N", "Custom blocks [2]")
        ->check(CLI::Range(0U, unsigned{VANTRIC_CUSTOM_FIELDS}));
    addValue(command, "--table-bits", options.tableBits, "N",
             "Bits of a value in the per-pixel tables, 0 for plain floats (12; for Korveline the "
             "widest up to 12 that fit)")
        ->check(CLI::Range(0U, 31U));
    addValue(command, "--straylight-exponent", content.straylightExponent, "P",
             "Exponent of the straylight distance norm, 2 is Euclidean [2]")
        ->check(CLI::PositiveNumber);
    addValue(command, "--seed", content.seed, "N",
             "Seed of everything that varies between modules [1]")
        ->check(wholeNumberFault);
    const auto bare = [&options] { options.layout = module::Layout::Packed; };
    command.add_flag_callback("--bare", bare, "The same as --layout packed")->excludes(layout);
    addValue(command, "-o,--output", options.output, "FILE", "File to write, - for standard output")
        ->required();
    command.add_flag("--force", options.force, "Replace a file that exists");
}

// ---------------------------------------------------------------------------------- all of it --

/// run returns the exit status. A usageFault beside Options tells what is wrong among them.
template <class Options>
void addSubcommand(CLI::App& app, Request& request, const Help& help,
                   void (*addOptions)(CLI::App&, Options&), int (*run)(const Options&)) {
    CLI::App* command = app.add_subcommand(help.name, help.summary)->footer(help.footer);
    command->formatter(formatterFor(help));
    const auto options = std::make_shared<Options>();
    addOptions(*command, *options);
    addTerminalOptions(*command, request.terminal);
    command->callback([&, options, run] {
        if constexpr (requires { usageFault(*options); }) {
            if (const auto fault = usageFault(*options)) {
                throw CLI::ValidationError(help.name, *fault);
            }
        }
        request.work = [options, run] { return run(*options); };
    });
}

}  // namespace

void addOptions(CLI::App& app, Request& request) {
    addSubcommand(app, request, cutHelp, addCutOptions, cut::runCut);
    addSubcommand(app, request, inspectHelp, addInspectOptions, inspect::runInspect);
    addSubcommand(app, request, plotHelp, addPlotOptions, plot::runPlot);
    addSubcommand(app, request, compareHelp, addCompareOptions, compare);
    addSubcommand(app, request, exportHelp, addExportOptions, exporting::runExport);
    addSubcommand(app, request, makeHelp, addMakeOptions, make::runMake);
    addTerminalOptions(app, request.terminal);
}

}  // namespace calcut::options
