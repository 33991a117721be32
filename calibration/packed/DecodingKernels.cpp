#include "calibration/packed/DecodingKernels.h"

#include "calibration/processor.h"

#ifdef __ARM_NEON
#define CALCUT_INSTRUCTION_SET neon
#include "calibration/packed/lookupKernels.h"
#endif

namespace vantric {

#ifdef __ARM_NEON
constinit const DecodingKernels neonKernels = neon::kernels;
#endif

const DecodingKernels& decodingKernels() {
#if defined(__ARM_NEON)
    return neonKernels;
#elif defined(__x86_64__)
    return hasAvx2() ? avx2Kernels : portableKernels;
#else
    return portableKernels;
#endif
}

}  // namespace vantric
