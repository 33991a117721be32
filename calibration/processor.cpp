#include "calibration/processor.h"

namespace vantric {

bool hasAvx2() {
#ifdef __x86_64__
    return __builtin_cpu_supports("avx2") != 0;
#else
    return false;
#endif
}

}  // namespace vantric
