#include "calibration/packed/DecodingKernels.h"

// Compiled for processors with AVX2; empty on others.
#ifdef __AVX2__

#define CALCUT_INSTRUCTION_SET avx2
#include "calibration/packed/lookupKernels.h"

namespace vantric {

constinit const DecodingKernels avx2Kernels = avx2::kernels;

}  // namespace vantric

#endif
