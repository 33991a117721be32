#pragma once

// Every kernel in the form in which one would write it down first: one value after the other, no
// step shared between values. The library's kernels give the same bits, faster.

#include <cstddef>
#include <cstdint>
#include <string>

#include "calcut/cutter.h"
#include "calcut/vantric.h"
#include "calcut/vantric_rx.h"

namespace calcut::plain {

/// By the standard table, or by one of 256 entries.
std::uint32_t crc32(const std::uint8_t* data, std::size_t length);
std::uint32_t crc32(const std::uint8_t* data, std::size_t length, const std::uint32_t* table);

/// Writes columns x rows x 3 floats; lens as in the record.
void updateDirections(float* directions, const float* lens, std::uint32_t columns,
                      std::uint32_t rows);

/// A curve through n points, at least 2; release it with vantric_freePoly.
VantricPoly* createPoly(const float* x, const float* y, std::uint32_t n);
float interpolate(const VantricPoly& poly, float t, float fallback);

/// Allocates and fills the PSF of a record that has a straylight model and no PSF yet.
void allocateAndCalculatePsf(VantricCalibration& record);

float decodeFloat(std::int32_t word);
float decodeFixedPoint(std::uint32_t value, float scale, float offset);

/// As vantric_unpackRXUint and vantric_unpackRXFloat, for 1 to 31 bits.
std::uint32_t unpackUint(const std::uint32_t* words, std::uint64_t wordCount,
                         std::uint64_t valueCount, unsigned bits, std::uint32_t* out);
std::uint32_t unpackFloat(const std::uint32_t* words, std::uint64_t wordCount,
                          std::uint64_t valueCount, unsigned bits, std::uint32_t* scratch,
                          float* out, float scale, float offset);

/// As vantric_decodeRXBlock.
std::uint32_t decodeBlock(VantricStream& stream, const RXBlockHeader& block, std::uint8_t* scratch,
                          std::uint64_t scratchSize, std::uint8_t* dest, std::uint64_t destSize);

/// As vantric_readCalibration, for packed calibrations.
std::uint32_t readCalibration(const std::uint8_t* data, std::size_t size, VantricCalibration** out);

/// As cutEEPROMContent for a v7 dump, without its log lines.
bool cutV7(const std::string& inputFile, const std::string& outputPath,
           EEPROMMetaInformation& metaInformation);

}  // namespace calcut::plain
