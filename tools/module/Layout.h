// What a file can be taken for: an image of one of the library's layouts, a bare packed
// calibration, or neither.
#pragma once

#include <optional>
#include <span>
#include <string_view>

#include "calibration/packed/Block.h"
#include "cutter/layouts.h"
#include "tools/files/Dump.h"

namespace calcut::module {

struct Layout {
    const char* name;                      ///< in options and reports: "v7", "packed", "unknown"
    std::string_view magic;                ///< what a file begins with; empty for Unknown
    const calcut::image::Layout* image{};  ///< null where there is no image around the calibration

    static const Layout Packed;
    static const Layout Unknown;

    bool operator==(const Layout& other) const { return std::string_view(name) == other.name; }
};

inline constexpr Layout Layout::Packed{"packed",
                                       {vantric::packedMagic.data(), vantric::packedMagic.size()}};
inline constexpr Layout Layout::Unknown{"unknown", {}};

/// How files become modules.
struct Reading {
    std::optional<Layout> layout{};  ///< by their first bytes when not set
    files::Intake intake{};
};

/// The images in the order of the library's layouts, then Packed.
std::span<const Layout> knownLayouts();

/// The known layout of that name.
std::optional<Layout> layoutNamed(std::string_view name);

/// The layout that the first bytes name, or Unknown.
Layout classify(files::ByteView file);

}  // namespace calcut::module
