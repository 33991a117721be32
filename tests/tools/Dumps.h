// Dumps whose blocks stand at known places.
#pragma once

#include "fixtures.h"
#include "tools/module/Diagnosis.h"
#include "tools/module/Layout.h"

namespace dumps {

using namespace fixtures;

inline const calcut::module::Layout v7Layout = *calcut::module::layoutNamed("v7");
inline const calcut::module::Layout korvelineLayout = *calcut::module::layoutNamed("korveline");

inline constexpr std::size_t v7Header = 67;
inline constexpr std::size_t korvelineHeader = 104;
inline constexpr std::uint8_t plainType = 7, signedType = 22;

// The minimal calibration, its principal point inside the image; offsets of its blocks.
inline Bytes minimal() {
    Bytes packed = minimalPacked();
    packed[30] = 0;  // cy = 0
    return packed;
}
inline constexpr std::size_t block1 = 15, block2 = 54, block16 = 81, block21 = 145, block22 = 164,
                             endMarker = 183;

inline Bytes inserted(Bytes bytes, std::size_t at, const Bytes& what) {
    bytes.insert(bytes.begin() + static_cast<std::ptrdiff_t>(at), what.begin(), what.end());
    return bytes;
}

inline Bytes signatureArea(std::uint8_t length) {
    return bytes(length, Bytes(127, 0xC5));
}

/// Faults and warnings, a line each.
inline std::string allOf(const calcut::module::Diagnosis& diagnosis) {
    std::string text;
    for (const auto* list : {&diagnosis.faults, &diagnosis.warnings}) {
        for (const calcut::module::Finding& finding : *list) {
            text += calcut::module::describe(finding) + "\n";
        }
    }
    return text;
}

}  // namespace dumps
