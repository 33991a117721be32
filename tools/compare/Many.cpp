// Many modules compared with one.
#include <algorithm>

#include <fmt/format.h>

#include "tools/commands.h"
#include "tools/compare/Compare.h"
#include "tools/files/Inputs.h"
#include "tools/files/OutputFile.h"
#include "tools/module/Module.h"
#include "tools/module/Names.h"
#include "tools/text/Escape.h"
#include "tools/text/Lines.h"
#include "tools/text/Progress.h"
#include "tools/text/Terminal.h"

namespace calcut::compare {

namespace {

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

}  // namespace

int compareMany(const CompareOptions& options) {
    const bool reported = !options.report.empty();
    if (reported) {
        std::vector<std::string> inputs = options.paths;
        inputs.push_back(options.to);
        const bool free =
            files::isFreeForReport(options.report, {headings({}).substr(0, 40) + "*"});
        files::checkWritable(options.report, inputs, options.force || free);
        // An earlier report must not be taken for this one's.
        files::writeOutput(options.report, options.report == "-" ? "" : headings({}));
    }
    const auto golden =
        module::loadModule(options.to, options.reading, module::Faults::toleratedInImage);
    const std::vector<files::Input> inputs =
        files::gatherInputs({.paths = options.paths, .leftOut = {options.report}});
    std::string report = headings(module::tablesOf(golden->diagnosis));
    std::vector<text::Row> rows;
    std::size_t equal = 0, different = 0, failed = 0;
    const text::InterruptGuard guard;
    text::Progress progress(inputs.size());
    for (const files::Input& input : inputs) {
        if (text::InterruptGuard::interrupted()) {
            break;
        }
        try {
            if (input.refusal) {
                throw text::Refused(input.path, *input.refusal);
            }
            const auto module =
                module::loadModule(input.path, options.reading, module::Faults::toleratedInImage);
            const Comparison comparison(golden->diagnosis, module->diagnosis, options.tolerances);
            report += reportRow(input.path, comparison);
            rows.push_back(tableRow(input.path, comparison));
            ++(comparison.equal ? equal : different);
        } catch (const std::exception& error) {
            progress.clear();
            text::printError(input.path, text::reasonOf(error));
            report += fmt::format("{},not compared,{}\r\n", text::csvField(input.path),
                                  text::csvField(text::reasonOf(error)));
            ++failed;
        }
        progress.step();
    }
    progress.clear();
    if (reported) {
        files::writeOutput(options.report, report);
    }
    if (options.report != "-") {
        text::Lines out(text::styleOfStdout());
        constexpr std::size_t leastName = 12;
        out.table({{"file", false, 0, leastName},
                   {"result"},
                   {"lens", true, 4},
                   {"tables", true, 3},
                   {"other values", true, 2},
                   {"blocks", true, 1}},
                  std::move(rows));
        out.line(fmt::format("{} dump{}: {} equal, {} different, {} not compared", inputs.size(),
                             inputs.size() == 1 ? "" : "s", equal, different,
                             inputs.size() - equal - different));
        text::print(out.take());
    }
    text::finishStdout();
    return failed != 0 ? exitNotCompared : different != 0 ? exitFailed : exitOk;
}

}  // namespace calcut::compare
