// The lens as calibration files of other programs. Their model is the one that rays are computed
// with (radial k1, k2, k3, tangential p1, p2, lengths in pixels, pixel centres at whole numbers),
// so the numbers go over as they are.
#pragma once

#include <string>
#include <string_view>

#include "tools/dump/Diagnosis.h"

namespace calcut::tools {

struct LensFile {
    std::string_view source;  ///< path of the dump
    const Diagnosis& module;  ///< its calibration reads
};

/// For OpenCV's cv::FileStorage.
std::string opencvText(const LensFile& lens);

/// A camera_info file of ROS, model plumb_bob.
std::string rosText(const LensFile& lens);

/// With the names of inspect --json.
std::string lensJsonText(const LensFile& lens);

}  // namespace calcut::tools
