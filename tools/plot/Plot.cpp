#include "tools/plot/Plot.h"

#include "tools/commands.h"
#include "tools/plot/Panels.h"
#include "tools/terminal/Escape.h"
#include "tools/terminal/OutputFile.h"
#include "tools/terminal/Terminal.h"

namespace calcut::tools {

namespace {

std::string shownName(const std::string& path) {
    return path == "-" ? "standard input" : escapePath(path.substr(path.find_last_of('/') + 1));
}

}  // namespace

int runPlot(const PlotOptions& options) {
    if (const std::string why = whyNotWritable(options.output, {options.input}); !why.empty()) {
        printError(options.output, why);
        return exitFailed;
    }
    const Dump dump = loadDump(options.input, options.maxSize);
    if (!dump.error.empty()) {
        printError(options.input, dump.error);
        return exitFailed;
    }
    const Diagnosis diagnosis = diagnose(dump.bytes, options.layout.value_or(classify(dump.bytes)),
                                         vantric::Wanted::everything);
    // A fault of the image alone (a wrong CRC-32, say) does not keep the calibration from sight.
    if (diagnosis.status != VANTRIC_OK || !diagnosis.record) {
        printError(options.input, diagnosis.faults.empty() ? "holds no calibration"
                                                           : describe(diagnosis.faults.front()));
        return exitFailed;
    }
    for (const Finding& fault : diagnosis.faults) {
        printWarning(options.input, describe(fault));
    }
    const std::vector<std::uint8_t> picture =
        drawSheet({shownName(options.input), dump.bytes.size(), diagnosis, *diagnosis.record},
                  options.sharedScale, pictureFormatOf(options.output));
    if (picture.empty()) {
        printError(options.output, "the picture could not be made (not enough memory?)");
        return exitFailed;
    }
    return writeOutput(options.output, picture) ? exitOk : exitFailed;
}

}  // namespace calcut::tools
