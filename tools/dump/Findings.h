// The words of every fault and warning, each written once.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "calibration/packed/Refusal.h"
#include "cutter/imageRecord.h"
#include "tools/dump/Diagnosis.h"

namespace calcut::tools {

/// What only the command looks for. Names, words and advice stand in Findings.cpp.
enum class OwnCause : std::uint8_t {
    // What stands in the place of an image.
    unknownMagic,
    blank,
    wrongLayout,
    swappedPairs,
    swappedWords,
    lensFile,
    bytesBeforeImage,
    calibrationInside,
    bareCalibration,
    // What a cut fails for beside image and calibration.
    emptyPayload,
    noRoomForSignature,
    onlySignature,
    signatureEmpty,
    signatureTooLong,
    // A fault when the walk fails behind it, else a warning.
    unknownBlock,
    // Warnings only.
    focalLength,
    centre,
    allMasked,
    customFields,
    trailingBytes,
    uncutSignature,
    endsInSignature,
    count
};

/// What one finding says beside the words that all of its cause have.
struct Particulars {
    std::uint64_t offset = 0;  ///< in the file
    std::uint64_t expected = 0;
    std::uint64_t found = 0;
    std::uint64_t alsoExpected = 0;
    std::uint32_t status = VANTRIC_OK;
    std::optional<std::uint32_t> blockId{};
    std::string wanted{};  ///< for causes whose words are texts
    std::string seen{};
};

Finding findingOf(image::Cause cause, const Particulars& particulars);
Finding findingOf(vantric::Cause cause, const Particulars& particulars);
Finding findingOf(OwnCause cause, const Particulars& particulars);

}  // namespace calcut::tools
