// What came of one dump, for people and for the report.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "calcut/cutter.h"
#include "tools/dump/Diagnosis.h"
#include "tools/dump/Names.h"

namespace calcut::tools {

/// The files of a cut.
inline constexpr const char* calibrationFile = CALCUT_CALIBRATION_FILE;
inline constexpr const char* lensFile = CALCUT_LENS_FILE;
inline constexpr const char* signatureFile = CALCUT_SIGNATURE_FILE;
inline constexpr std::array<const char*, 3> stackFiles = {calibrationFile, lensFile, signatureFile};

enum class Outcome : std::uint8_t {
    NotReached,
    Cut,
    Kept,  ///< its folder held a whole cut already
    Failed
};

/// "not reached", "cut", "kept", "failed"
const char* outcomeName(Outcome outcome);

struct CutResult {
    std::string dump;    ///< path as given
    std::string folder;  ///< where its files are, or would have gone
    Outcome outcome = Outcome::NotReached;
    std::string reason;            ///< why it was not cut, one line; empty when it was
    std::optional<Finding> fault;  ///< when the dump is to blame
    std::vector<Finding> warnings;
    bool earlierCut = false;  ///< it failed, and the folder still holds an earlier cut's files

    bool loaded = false;  ///< size, crc and layout are known
    std::uint64_t size = 0;
    std::uint32_t crc = 0;  ///< CRC-32 of the whole dump
    Layout layout = Layout::Unknown;

    // Only with Cut and Kept.
    std::array<std::string, 3> texts;
    std::vector<std::uint8_t> idBytes;
    std::array<float, VANTRIC_LENS_PARAMETERS> lens{};
    std::uint16_t maskedPixels = 0;

    [[nodiscard]] bool good() const { return outcome == Outcome::Cut || outcome == Outcome::Kept; }
    /// Makes it a failure; a result that failed already keeps its reason.
    void fail(std::string why);
};

}  // namespace calcut::tools
