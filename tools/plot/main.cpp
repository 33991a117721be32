// calcut-plot: what `calcut plot` becomes, see tools/commands.h.
#include <charconv>
#include <cstring>
#include <optional>
#include <string_view>

#include "tools/commands.h"
#include "tools/compare/Compare.h"
#include "tools/plot/Differences.h"
#include "tools/plot/Plot.h"
#include "tools/terminal/Terminal.h"

namespace {

using namespace calcut::tools;

template <typename Number>
Number numberOf(std::string_view word) {
    Number number = 0;
    (void)std::from_chars(word.data(), word.data() + word.size(), number);
    return number;
}

std::optional<Layout> layoutOf(std::string_view word) {
    for (const Layout known : knownLayouts) {
        if (word == layoutName(known)) {
            return known;
        }
    }
    return std::nullopt;
}

void takeTerminal(const char* colour, const char* verbosity) {
    setTerminal({static_cast<ColourMode>(numberOf<unsigned>(colour)),
                 static_cast<Verbosity>(numberOf<unsigned>(verbosity))});
}

int plot(char** argv) {
    PlotOptions options;
    options.input = argv[1];
    options.output = argv[2];
    options.layout = layoutOf(argv[3]);
    options.maxSize = numberOf<std::uint64_t>(argv[4]);
    options.sharedScale = numberOf<unsigned>(argv[5]) != 0;
    takeTerminal(argv[6], argv[7]);
    return runPlot(options);
}

int compare(char** argv) {
    CompareOptions options;
    options.a = argv[2];
    options.b = argv[3];
    options.output = argv[4];
    options.layout = layoutOf(argv[5]);
    options.maxSize = numberOf<std::uint64_t>(argv[6]);
    options.json = numberOf<unsigned>(argv[7]) != 0;
    if (*argv[8] != '\0') {
        options.tolerance = numberOf<double>(argv[8]);
    }
    takeTerminal(argv[9], argv[10]);
    return runCompare(options, drawDifferences);
}

int work(int argc, char** argv) {
    constexpr int plotWords = 8;
    constexpr int compareWords = 11;
    if (argc == plotWords) {
        return plot(argv);
    }
    if (argc == compareWords && std::strcmp(argv[1], "compare") == 0) {
        return compare(argv);
    }
    printError("", "this is a part of calcut; the command is calcut plot");
    return exitUsage;
}

}  // namespace

int main(int argc, char** argv) {
    return calcut::tools::runMain(work, argc, argv);
}
