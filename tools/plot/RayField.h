// What the picture of the rays says in numbers and words.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "calcut/vantric.h"
#include "tools/plot/Axes.h"

namespace calcut::tools {

/// From a pixel to where a pinhole without distortion sees the pixel's ray, in pixels.
Point shiftAt(const VantricCalibration& record, std::uint32_t column, std::uint32_t row);

struct RayField {
    std::vector<float> angles;   ///< from the optical axis, degrees; NaN where not finite
    std::size_t notFinite = 0;   ///< rays
    std::size_t compared = 0;    ///< rays with a shift
    double longest = 0.0;        ///< shift among them
    double arrowStep = 1.0;      ///< pixels from arrow to arrow
    double magnification = 0.0;  ///< of the arrows; 0 without distortion
};
RayField rayFieldOf(const VantricCalibration& record);

/// One line on the distortion, or on why there is nothing to say about it.
std::string distortionText(const RayField& field, bool arrows);

}  // namespace calcut::tools
