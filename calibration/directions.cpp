#include "calibration/directions.h"

#include "calibration/calibration.h"
#include "calibration/processor.h"
#define CALCUT_INSTRUCTION_SET portable
#include "calibration/directionsKernel.h"

namespace vantric {

void computeDirectionsPortable(float* directions, const float* lensParameters,
                               std::uint32_t columns, std::uint32_t rows) {
    portable::computeTiles(directions, lensParameters, columns, rows);
}

void computeDirections(float* directions, const float* lensParameters, std::uint32_t columns,
                       std::uint32_t rows) {
#ifdef __x86_64__
    if (hasAvx2()) {
        computeDirectionsAvx2(directions, lensParameters, columns, rows);
        return;
    }
#endif
    computeDirectionsPortable(directions, lensParameters, columns, rows);
}

}  // namespace vantric

uint32_t vantric_updateDirections(float* directions, uint32_t count, const float* lensParameters,
                                  const VantricImagerArea* imagerArea) {
    const VantricImagerArea& area = *imagerArea;
    // Twice 32 bits times 3 would overflow even 64 bits; the pixels alone cannot.
    const std::uint64_t pixels = vantric::pixelsOf(area);
    if (pixels > count || pixels * vantric::floatsPerDirection != count ||
        area.areaX > area.columns || area.areaY > area.rows) {
        return VANTRIC_ERR_ALREADY_SET;
    }
    if (pixels == 0) {
        return VANTRIC_OK;  // without a look at the lens
    }
    vantric::computeDirections(directions, lensParameters, area.columns, area.rows);
    return VANTRIC_OK;
}
