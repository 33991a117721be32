// calcut plot: a calibration as a picture.
#include <memory>
#include <string>

#include "CalibrationReport.h"
#include "commands.h"
#include "Output.h"
#ifdef CALCUT_HAVE_CAIRO
#include "Sheet.h"
#endif

namespace calcut::tools {

namespace {

struct PlotOptions {
    std::string path;
    std::string output;
};

#ifdef CALCUT_HAVE_CAIRO

bool endsWith(const std::string& text, const std::string& ending) {
    return text.size() >= ending.size() &&
           text.compare(text.size() - ending.size(), ending.size(), ending) == 0;
}

int plot(const PlotOptions& options) {
    LoadedFile loaded = loadFile(options.path, Source::Anything);
    const std::string shown = escapePath(options.path);
    if (!loaded.error.empty()) {
        printError(shown, loaded.error);
        return exitFailed;
    }
    const Layout layout = classify(loaded.bytes);
    const CalibrationReport report = makeReport(options.path, std::move(loaded.bytes), layout);
    // A fault of the image alone (a wrong CRC-32, say) does not keep the calibration from sight.
    if (report.status != VANTRIC_OK || !report.record) {
        printError(shown, describe(report.faults.front()) + "; calcut inspect shows more");
        return exitFailed;
    }
    for (const Fault& fault : report.faults) {
        printWarning(shown, describe(fault));
    }
    const SheetFormat format =
        endsWith(options.output, ".svg") ? SheetFormat::Svg : SheetFormat::Png;
    const std::vector<std::uint8_t> picture = drawSheet(report, format);
    if (picture.empty()) {
        printError(shown, "the picture could not be made (not enough memory?)");
        return exitFailed;
    }
    return writeOutput(options.output, picture) ? exitOk : exitFailed;
}

#else

int plot(const PlotOptions&) {
    printError("", "this build cannot draw: it was made without Cairo");
    return exitFailed;
}

#endif

}  // namespace

void addPlotCommand(CLI::App& app, int& exitCode) {
    auto options = std::make_shared<PlotOptions>();
    CLI::App* command = app.add_subcommand("plot", "Draw a calibration on one sheet");
    command->add_option("FILE", options->path, "Dump, packed calibration, or - for standard input")
        ->required();
    command
        ->add_option("-o,--output", options->output,
                     "Picture to write: NAME.png or NAME.svg; - writes a PNG to standard output")
        ->required()
        ->check([](const std::string& name) -> std::string {
            const std::size_t dot = name.find_last_of('.');
            const std::string ending = dot == std::string::npos ? "" : name.substr(dot);
            return name == "-" || ending == ".png" || ending == ".svg"
                       ? ""
                       : "the picture's name must end in .png or .svg";
        });
    command->footer(
        "Exit status: 0 the sheet was written, 1 it was not, 2 usage.\n"
        "\n"
        "Example:\n"
        "  calcut plot module.bin -o sheet.png");
    command->callback([options, &exitCode] { exitCode = plot(*options); });
}

}  // namespace calcut::tools
