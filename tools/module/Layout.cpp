#include "tools/module/Layout.h"

#include "calibration/packed/Block.h"
#include "cutter/korvelineImage.h"
#include "cutter/v7Image.h"

namespace calcut::module {

const LayoutTraits& traitsOf(Layout layout) {
    static constexpr std::array<LayoutTraits, 4> traits = {{
        {"v7", image::v7::magic, image::v7::fields, image::v7::locate},
        {"korveline", image::korveline::magic, image::korveline::fields, image::korveline::locate},
        {"packed", {vantric::packedMagic.data(), vantric::packedMagic.size()}},
        {"unknown", {}},
    }};
    return traits.at(static_cast<std::size_t>(layout));
}

Layout classify(files::ByteView file) {
    const std::string_view start(reinterpret_cast<const char*>(file.data()), file.size());
    for (const Layout known : knownLayouts) {
        if (start.starts_with(traitsOf(known).magic)) {
            return known;
        }
    }
    return Layout::Unknown;
}

}  // namespace calcut::module
