#include "tools/compare/Compare.h"

#include <algorithm>
#include <iterator>
#include <memory>

#include <fmt/format.h>

#include "tools/files/Inputs.h"
#include "tools/files/OutputFile.h"
#include "tools/module/Diagnosis.h"
#include "tools/module/Names.h"
#include "tools/text/Escape.h"
#include "tools/text/Lines.h"
#include "tools/text/Progress.h"
#include "tools/text/Terminal.h"

namespace calcut::compare {

namespace {

std::unique_ptr<module::Module> load(const files::Input& input, const CompareOptions& options) {
    return module::loadModule(input, options.reading, module::Faults::toleratedInImage);
}

int compareTwo(const CompareOptions& options, DrawDifferences draw) {
    const bool drawn = !options.output.empty();
    if (drawn) {
        files::checkWritable(options.output, options.paths, options.force);
    }
    std::vector<std::unique_ptr<module::Module>> modules;
    // Both are tried, so that one run tells about both.
    const std::size_t failed = files::forEachInput(
        {{options.paths[0]}, {options.paths[1]}},
        [&](const files::Input& input) { modules.push_back(load(input, options)); });
    if (failed != 0) {
        return exitNotCompared;
    }
    const module::Diagnosis &a = modules[0]->diagnosis, &b = modules[1]->diagnosis;
    const Comparison comparison(a, b, options.tolerances);
    const Pair<std::string> paths = {options.paths[0], options.paths[1]};
    if (drawn) {
        files::writeOutput(options.output, draw(a, b, options));
    }
    if (options.json) {
        text::writeStdout(text::jsonText(treeOf(comparison, paths), 2) + "\n");
    } else {
        text::print(textOf(comparison, paths, text::styleOfStdout()));
    }
    text::finishStdout();
    return comparison.equal ? exitOk : exitFailed;
}

// ----------------------------------------------------------------------------- many with one --

/// The lens as a table, for the same three numbers.
module::Table lensTableOf(const module::Diagnosis& about) {
    const std::span<const float> values(about.record->lensParameters, VANTRIC_LENS_PARAMETERS);
    return {"lens", "lens", VANTRIC_LENS_PARAMETERS, 1, 1, {}, values};
}

/// Mean, RMS and largest difference in the columns of a report; empty where there are none.
std::string numbers(bool comparable, const module::TableDifference& of) {
    return comparable ? fmt::format(",{},{},{}", static_cast<float>(of.mean),
                                    static_cast<float>(of.rms), static_cast<float>(of.max))
                      : ",,,";
}

std::string headings(const std::vector<module::Table>& tables) {
    std::string line = fmt::format("file,result,reason,{}", fmt::join(module::lensNames, ","));
    const auto add = [&line](const std::string& name) {
        line += fmt::format(",{0} mean,{0} rms,{0} max", name);
    };
    add("lens");
    for (const module::Table& table : tables) {
        add(table.name);
    }
    return line + "\r\n";
}

/// One row of the report: lens parameters as differences, then the tables that A has.
std::string reportRow(const std::string& path, const Comparison& comparison) {
    std::string line =
        fmt::format("{},{},", text::csvField(path), comparison.equal ? "equal" : "different");
    const Pair<module::Table> lens = {lensTableOf(*comparison.sides[0]),
                                      lensTableOf(*comparison.sides[1])};
    for (std::size_t i = 0; i < lens[0].size(); ++i) {
        line += fmt::format(",{}", static_cast<float>(double{lens[1][i]} - double{lens[0][i]}));
    }
    line += numbers(true, module::differenceOf(lens[0], lens[1]));
    for (const TablePair& pair : comparison.tables) {
        line += pair.sides[0] == nullptr ? "" : numbers(pair.comparable, pair.difference);
    }
    return line + "\r\n";
}

text::Row tableRow(const std::string& path, const Comparison& comparison) {
    const auto count = [](const auto& list, auto differs) {
        return fmt::to_string(std::ranges::count(list, true, differs));
    };
    return {{text::escapePath(path),
             {comparison.equal ? "equal" : "different",
              comparison.equal ? text::Colour::Green : text::Colour::Yellow},
             count(comparison.lens, &ValuePair::differs),
             count(comparison.tables, &TablePair::differs),
             fmt::to_string(comparison.values.size()),
             count(comparison.blocks, &BlockPair::differs)}};
}

int compareMany(const CompareOptions& options) {
    // An earlier report is no input.
    const bool free = files::isFreeForReport(options.report, {headings({}).substr(0, 40) + "*"});
    const std::vector<files::Input> inputs = files::gatherInputs(
        {.paths = options.paths, .leftOut = {free ? options.report : std::string()}});
    if (!options.report.empty()) {
        std::vector<std::string> read = {options.to};
        std::ranges::transform(inputs, std::back_inserter(read), &files::Input::path);
        files::checkWritable(options.report, read, options.force || free);
        // An earlier report must not be taken for this one's.
        files::writeOutput(options.report, options.report == "-" ? "" : headings({}));
    }
    const auto golden = load({options.to}, options);
    std::string report = headings(module::tablesOf(golden->diagnosis));
    std::vector<text::Row> rows;
    std::size_t equal = 0;
    const text::InterruptGuard guard;
    text::Progress progress(inputs.size());
    const auto compareOne = [&](const files::Input& input) {
        const auto module = load(input, options);
        const Comparison comparison(golden->diagnosis, module->diagnosis, options.tolerances);
        report += reportRow(input.path, comparison);
        rows.push_back(tableRow(input.path, comparison));
        equal += comparison.equal ? 1 : 0;
        progress.step();
    };
    const auto noteFailure = [&](const files::Input& input, const std::string& reason) {
        report += fmt::format("{},not compared,{}\r\n", text::csvField(input.path),
                              text::csvField(reason));
        progress.step();
    };
    const std::size_t failed = files::forEachInput(inputs, compareOne, noteFailure);
    const std::size_t different = rows.size() - equal;
    progress.clear();
    if (!options.report.empty()) {
        files::writeOutput(options.report, report);
    }
    if (options.report != "-") {
        const std::string summary = fmt::format("{}: {} equal, {} different, {} not compared",
                                                text::counted(inputs.size(), "dump"), equal,
                                                different, inputs.size() - rows.size());
        text::Lines out(text::styleOfStdout());
        constexpr std::size_t leastName = 12;
        out.table({{"file", false, 0, leastName},
                   {"result"},
                   {"lens", true, 4},
                   {"tables", true, 3},
                   {"other values", true, 2},
                   {"blocks", true, 1}},
                  std::move(rows));
        out.line(summary);
        text::print(out.take());
    }
    text::finishStdout();
    return failed != 0 ? exitNotCompared : different != 0 ? exitFailed : exitOk;
}

}  // namespace

std::optional<std::string> usageFault(const CompareOptions& options) {
    const auto& [absolute, relative] = options.tolerances;
    const bool perTable = !relative.empty() || absolute.size() != absolute.count("");
    return options.to.empty() && options.paths.size() != 2 ? "give two files, or many with --to"
           : std::ranges::count(options.paths, "-") + (options.to == "-" ? 1 : 0) > 1
               ? "only one file can be standard input"
           : !options.to.empty() && options.json            ? "--to takes no --json, but a --report"
           : options.report.ends_with(".json")              ? "the --report is a CSV, not JSON"
           : !options.to.empty() && !options.output.empty() ? "--to draws nothing"
           : !options.output.empty() && perTable
               ? "a picture takes one --tolerance for everything, and no --rtol"
               : std::optional<std::string>();
}

int runCompare(const CompareOptions& options, DrawDifferences draw) {
    // To whoever asks by the exit status, nothing that goes wrong may look like a difference.
    return text::guarded(
        [&] { return options.to.empty() ? compareTwo(options, draw) : compareMany(options); },
        exitNotCompared);
}

}  // namespace calcut::compare
