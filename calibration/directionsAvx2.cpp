#include "calibration/directions.h"

// Compiled for processors with AVX2; empty on others.
#ifdef __AVX2__

#define CALCUT_INSTRUCTION_SET avx2
#include "calibration/directionsKernel.h"

namespace vantric {

void computeDirectionsAvx2(float* directions, const float* lensParameters, std::uint32_t columns,
                           std::uint32_t rows) {
    avx2::computeTiles(directions, lensParameters, columns, rows);
}

}  // namespace vantric

#endif
