#include <memory>

#include "keep.h"
#include "work.h"

#ifdef CALCUT_HAVE_OPENCV
#include <opencv2/calib3d.hpp>
#endif
#ifdef CALCUT_HAVE_PCHIP
#include <math.h>  // NOLINT(modernize-deprecated-headers): pchip of this Boost asks for ::isnan

#include <boost/math/interpolators/pchip.hpp>
#endif
#ifdef CALCUT_HAVE_ZLIB
#include <zlib.h>
#endif

namespace calcut::bench {

Run opencvUndistortPoints([[maybe_unused]] const std::vector<float>& lens,
                          [[maybe_unused]] std::uint32_t columns,
                          [[maybe_unused]] std::uint32_t rows) {
#ifdef CALCUT_HAVE_OPENCV
    cv::setNumThreads(1);
    std::vector<cv::Point2f> pixels;
    for (std::uint32_t v = 0; v < rows; ++v) {
        for (std::uint32_t u = 0; u < columns; ++u) {
            pixels.emplace_back(static_cast<float>(u), static_cast<float>(v));
        }
    }
    const cv::Mat camera =
        (cv::Mat_<double>(3, 3) << lens[0], 0, lens[2], 0, lens[1], lens[3], 0, 0, 1);
    const cv::Mat distortion =
        (cv::Mat_<double>(1, 5) << lens[4], lens[5], lens[6], lens[7], lens[8]);
    // The criterion of 15 rounds alone; the result buffer is allocated once.
    return [=, rays = std::vector<cv::Point2f>()]() mutable {
        cv::undistortPoints(pixels, rays, camera, distortion, cv::noArray(), cv::noArray(),
                            cv::TermCriteria(cv::TermCriteria::COUNT, 15, 0));
        keep(rays.data());
    };
#else
    return {};
#endif
}

Run zlibCrc32([[maybe_unused]] const std::vector<std::uint8_t>& data) {
#ifdef CALCUT_HAVE_ZLIB
    return [&] { keep(::crc32(0, data.data(), static_cast<uInt>(data.size()))); };
#else
    return {};
#endif
}

Run boostPchip([[maybe_unused]] const std::vector<float>& x,
               [[maybe_unused]] const std::vector<float>& y,
               [[maybe_unused]] const std::vector<float>& at,
               [[maybe_unused]] std::vector<float>& out) {
#ifdef CALCUT_HAVE_PCHIP
    return [&] {
        const boost::math::interpolators::pchip<std::vector<float>> curve{std::vector<float>(x),
                                                                          std::vector<float>(y)};
        for (std::size_t i = 0; i < at.size(); ++i) {
            out[i] = curve(at[i]);
        }
        clobberMemory();
    };
#else
    return {};
#endif
}

}  // namespace calcut::bench
