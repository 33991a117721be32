// One cut in a process that does nothing else:
//   calcut_cold_cut plain|fast DUMP DIRECTORY
// Prints how many pages the cut touched first. The dump must be a v7 image.
#include <cstdio>
#include <cstring>

#include <sys/resource.h>

#include "calcut/cutter.h"
#include "plain/plain.h"

namespace {

long pagesTouched() {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return usage.ru_minflt;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 4) {
        return 2;
    }
    EEPROMMetaInformation meta;
    const long before = pagesTouched();
    const bool done = std::strcmp(argv[1], "plain") == 0
                          ? calcut::plain::cutV7(argv[2], argv[3], meta)
                          : cutEEPROMContent(CALCUT_LAYOUT_V7, argv[2], argv[3], &meta) == 0;
    std::printf("%ld\n", pagesTouched() - before);
    return done ? 0 : 1;
}
