#pragma once

#include <cstdint>

#include "calcut/vantric.h"

namespace vantric {

/// vantric_updateDirections without its size tests: writes columns x rows x 3 floats.
void computeDirections(float* directions, const float* lensParameters, std::uint32_t columns,
                       std::uint32_t rows);

/// The same by the instructions that every processor has, and by AVX2 where the processor has it
/// (x86-64 alone).
void computeDirectionsPortable(float* directions, const float* lensParameters,
                               std::uint32_t columns, std::uint32_t rows);
void computeDirectionsAvx2(float* directions, const float* lensParameters, std::uint32_t columns,
                           std::uint32_t rows);

}  // namespace vantric
