// Compiled once for each target, with CALCUT_FUZZ_TARGET as its name.
#include "targets.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzz::CALCUT_FUZZ_TARGET(data, size);
    return 0;
}
