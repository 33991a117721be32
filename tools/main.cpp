// The calcut command.
#include "tools/options/CommandLine.h"
#include "tools/terminal/Terminal.h"

int main(int argc, char** argv) {
    return calcut::tools::runMain(calcut::tools::runCommandLine, argc, argv);
}
