// The layouts of files that the command knows.
#pragma once

#include <array>
#include <span>
#include <string_view>

#include "cutter/imageRecord.h"
#include "tools/files/Dump.h"

namespace calcut::module {

enum class Layout { V7, Korveline, Packed, Unknown };

inline constexpr std::array knownLayouts = {Layout::V7, Layout::Korveline, Layout::Packed};

/// What the command knows about a layout. Only images have fields and a function that finds their
/// record.
struct LayoutTraits {
    const char* name;        ///< "v7", "korveline", "packed", "unknown": in options and reports
    std::string_view magic;  ///< what a file begins with; empty for Unknown
    std::span<const image::Field> fields{};
    image::Record (*locate)(image::Bytes file, std::uint64_t cursor) = nullptr;
};
const LayoutTraits& traitsOf(Layout layout);

inline const char* layoutName(Layout layout) {
    return traitsOf(layout).name;
}

/// The layout that the first bytes name.
Layout classify(files::ByteView file);

}  // namespace calcut::module
