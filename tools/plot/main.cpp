// calcut-plot: what `calcut plot` becomes, see tools/commands.h.
#include <charconv>
#include <cstring>
#include <string_view>

#include "tools/commands.h"
#include "tools/plot/Plot.h"
#include "tools/terminal/Terminal.h"

namespace {

using namespace calcut::tools;

enum Word { program, input, output, layout, maxSize, sharedScale, colour, verbosity, wordCount };

template <typename Number>
Number numberOf(std::string_view word) {
    Number number = 0;
    (void)std::from_chars(word.data(), word.data() + word.size(), number);
    return number;
}

int plot(int argc, char** argv) {
    if (argc != wordCount) {
        printError("", "this is a part of calcut; the command is calcut plot");
        return exitUsage;
    }
    setTerminal({static_cast<ColourMode>(numberOf<unsigned>(argv[colour])),
                 static_cast<Verbosity>(numberOf<unsigned>(argv[verbosity]))});
    PlotOptions options;
    options.input = argv[input];
    options.output = argv[output];
    for (const Layout known : knownLayouts) {
        if (std::strcmp(argv[layout], layoutName(known)) == 0) {
            options.layout = known;
        }
    }
    options.maxSize = numberOf<std::uint64_t>(argv[maxSize]);
    options.sharedScale = numberOf<unsigned>(argv[sharedScale]) != 0;
    return runPlot(options);
}

}  // namespace

int main(int argc, char** argv) {
    return calcut::tools::runMain(plot, argc, argv);
}
