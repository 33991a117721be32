#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace calcut::bench {

using Run = std::function<void()>;

/// One line of the table: the same work done in several ways.
struct Work {
    std::string name;
    Run plain;
    Run fast;
    double target = 0.0;  ///< plain / fast at least; 0: none
    std::string peerName = {};
    Run peer = {};            ///< another library's answer; empty when it is missing
    double peerTarget = 0.0;  ///< peer / fast at least; 0: none
    Run bound = {};           ///< the memory traffic alone
    long repetitions = 4;     ///< when instructions are counted; 0: not done
};

/// Which of their variants the kernels choose on this processor.
std::string chosenKernels();

/// Directions, PSF, interpolation, unpacking, float decoding, checksum.
std::vector<Work> kernelWork();

/// Whole calibrations and whole cuts.
std::vector<Work> readingWork();

/// Reads and cuts of images from 16 x 12 to 2048 x 1536 pixels, without their plain forms.
std::vector<Work> scalingWork();

// Peers; each returns an empty function when the library was not there at build time. The buffers
// must outlive the function.
Run opencvUndistortPoints(const std::vector<float>& lens, std::uint32_t columns,
                          std::uint32_t rows);
Run zlibCrc32(const std::vector<std::uint8_t>& data);
Run boostPchip(const std::vector<float>& x, const std::vector<float>& y,
               const std::vector<float>& at, std::vector<float>& out);

/// Prints what a cut takes in a process of its own, and how many dumps a second one takes.
void reportProcesses();

/// Measures everything alternatingly and prints the table. False when a target was missed.
bool measureAndReport(const std::vector<Work>& work, int repetitions, double secondsPerRun);

}  // namespace calcut::bench
