// The sheet of "calcut plot", one calibration on one page, and its panels.
#pragma once

#include <optional>
#include <string>

#include "tools/dump/Diagnosis.h"
#include "tools/plot/Canvas.h"
#include "tools/plot/MapPicture.h"
#include "tools/plot/Scale.h"

namespace calcut::tools {

/// A module whose calibration reads.
struct Module {
    std::string name;  ///< of its file, fit to be shown
    std::uint64_t fileSize = 0;
    const Diagnosis& diagnosis;
    const VantricCalibration& record;

    [[nodiscard]] ImageShape shape() const {
        return {record.imagerArea.columns, record.imagerArea.rows};
    }
    [[nodiscard]] std::size_t pixels() const {
        return std::size_t{record.imagerArea.columns} * record.imagerArea.rows;
    }
    [[nodiscard]] std::span<const std::uint8_t> mask() const {
        return {record.pixelMask, pixels()};
    }
};

/// Id of a block of frequency k.
constexpr std::uint32_t frequencyBlock(unsigned k, RXFrequencyBlock block) {
    return RX_BLOCK_FIRST_FREQUENCY + RX_BLOCKS_PER_FREQUENCY * k + block;
}

// See Drawing.h.
std::vector<std::uint8_t> drawSheet(const Diagnosis& diagnosis, const std::string& input,
                                    bool sharedScale, const std::string& output);
std::vector<std::uint8_t> drawDifferences(const Diagnosis& a, const Diagnosis& b,
                                          const std::string& output);

void drawSummary(Canvas& canvas, const Rect& cell, const Module& module);
void drawMask(Canvas& canvas, const Rect& cell, const Module& module);
void drawRays(Canvas& canvas, const Rect& cell, const Module& module);
void drawPixelValues(Canvas& canvas, const Rect& cell, const Module& module);
/// scale: of the colours, the table's own when not set.
void drawPixelTable(Canvas& canvas, const Rect& cell, const Module& module, unsigned k,
                    const std::optional<Scale>& scale);
/// The small tables of frequency k: values A and B, wiggling A and B.
void drawFrequencyTables(Canvas& canvas, const Rect& cell, const Module& module, unsigned k);
void drawPsf(Canvas& canvas, const Rect& cell, const Module& module);
void drawProfile(Canvas& canvas, const Rect& cell, const Module& module);

}  // namespace calcut::tools
