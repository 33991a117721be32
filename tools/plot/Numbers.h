// What the pictures say in numbers and words, and where their colours end.
#pragma once

#include <cstddef>
#include <cstdint>
#include <limits>
#include <span>
#include <string>
#include <vector>

#include "calcut/vantric.h"
#include "calcut/vantric_rx.h"
#include "tools/plot/Scales.h"

namespace calcut::plot {

/// Values of an image, row by row, with the mask that goes with them.
struct MaskedValues {
    std::span<const float> values;
    std::span<const std::uint8_t> mask{};  ///< 0 is masked; empty: nothing is

    [[nodiscard]] bool masked(std::size_t at) const { return !mask.empty() && mask[at] == 0; }
};

/// Of the finite values that are not masked; NaN where there is none.
struct Statistics {
    static constexpr double none = std::numeric_limits<double>::quiet_NaN();
    std::size_t count = 0;
    std::size_t masked = 0;
    double min = none;
    double mean = none;
    double deviation = none;  ///< of the sample (divided by count - 1); 0 for one value
    double max = none;
    double robustLow = none;               ///< one value in a thousand lies below
    double robustHigh = none;              ///< one value in a thousand lies above
    std::vector<std::size_t> notFinite{};  ///< those, unless masked
};
Statistics statisticsOf(const MaskedValues& map);

/// The value below which a fraction of the values lies, by rank; there must be some, and they come
/// back in another order.
double quantile(std::vector<float>& values, double fraction);

/// Colour limits that a few wild values do not move.
Scale robustScale(const Statistics& statistics);

/// What lies farther from a scale than a quarter of it.
std::vector<std::size_t> outliersOf(const MaskedValues& map, const Scale& scale);

/// "min 0.1   mean 0.2   deviation 0.05   max 0.3"
std::string statisticsText(const Statistics& statistics);

/// How finely a block stores its values, "12 bits, step 0.0001": so that the steps of a coarse
/// table are not taken for contours. width: of the colour scale.
std::string storageText(const RXBlockHeader& header, double width);

/// From a pixel to where a pinhole without distortion sees the pixel's ray, in pixels.
Point shiftAt(const VantricCalibration& record, std::size_t pixel);

struct RayField {
    std::vector<float> angles;   ///< from the optical axis, degrees; NaN where not finite
    Statistics rays;             ///< of the angles
    Statistics shifts;           ///< of the lengths of those that are finite
    double arrowStep = 1.0;      ///< pixels from arrow to arrow
    double magnification = 0.0;  ///< of the arrows; 0 without distortion
};
RayField rayFieldOf(const VantricCalibration& record);

/// One line on the distortion, or on why there is nothing to say about it.
std::string distortionText(const RayField& field, bool arrows);

}  // namespace calcut::plot
