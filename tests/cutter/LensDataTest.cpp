#include <gtest/gtest.h>

#include <array>
#include <numeric>

#include "calcut/cutter.h"
#include "fixtures.h"
#include "RecordingLog.h"

using namespace fixtures;

namespace {

using Parameters = std::array<float, CALCUT_LENS_PARAMETER_COUNT>;

// Floats 1, 2, 3, ... as many as fit, and the bytes of one more.
Bytes lensFile(std::size_t size) {
    std::vector<float> values(size / 4 + 1);
    std::iota(values.begin(), values.end(), 1.0F);
    const auto* raw = reinterpret_cast<const std::uint8_t*>(values.data());
    return {raw, raw + size};
}

}  // namespace

TEST(LensParameters, ComeInTheOrderOfTheCamerasModel) {
    const TempDir dir;
    for (const std::size_t size : {36U, 40U, 4000U}) {
        writeBytes(dir / "lens", lensFile(size));
        for (const unsigned layout : {0U, 1U}) {
            Parameters parameters;
            parameters.fill(-1.0F);
            EXPECT_EQ(readLensParameters(layout, (dir / "lens").c_str(), parameters.data()), 0);
            EXPECT_EQ(parameters, (Parameters{3, 4, 1, 2, 7, 8, 5, 6, 9, 0}));
        }
    }
}

TEST(LensParameters, AreLeftAloneByEveryFailure) {
    const TempDir dir;
    Parameters parameters;
    parameters.fill(-1.0F);
    const auto fails = [&](unsigned layout, const char* path, std::size_t messages) {
        recording::takeLines();
        EXPECT_EQ(readLensParameters(layout, path, parameters.data()), 1);
        EXPECT_EQ(recording::takeErrors(),
                  std::vector<std::string>(messages, "Could not lens parameter file"));
    };
    for (std::size_t size = 0; size < 64; ++size) {
        if (size < 36 || size % 4 != 0) {
            writeBytes(dir / "lens", lensFile(size));
            fails(0, (dir / "lens").c_str(), 1);
        }
    }
    fails(1, (dir / "missing").c_str(), 1);
    fails(1, dir.path().c_str(), 1);
    fails(1, nullptr, 1);
    fails(2, (dir / "missing").c_str(), 0);
    fails(0xFFFFFFFFU, nullptr, 0);
    EXPECT_EQ(parameters, (Parameters{-1, -1, -1, -1, -1, -1, -1, -1, -1, -1}));
}
