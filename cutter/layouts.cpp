#include "cutter/layouts.h"

#include <array>

#include "cutter/EEPROMKorvelineCutter.h"
#include "cutter/EEPROMv7Cutter.h"
#include "cutter/korvelineImage.h"
#include "cutter/v7Image.h"

namespace calcut::image {

namespace {

template <class Cutter>
std::unique_ptr<IEEPROMCutter> make() {
    return std::make_unique<Cutter>();
}

constexpr std::array all = {
    Layout{.number = CALCUT_LAYOUT_V7,
           .name = "v7",
           .title = "v7",
           .magic = v7::magic,
           .fields = v7::fields,
           .headerSize = v7::headerSize,
           .versionField = v7::fieldVersion,
           .lengthField = v7::fieldLength,
           .maxPayload = v7::maxPayload,
           .signatureArea = 0,
           .blockNotWritten = "Could not write data block",
           .lensNotWritten = "Could not write data intrinsics",
           .locate = v7::locate,
           .makeCutter = make<EEPROMv7Cutter>},
    Layout{.number = CALCUT_LAYOUT_KORVELINE,
           .name = "korveline",
           .title = "Korveline",
           .magic = korveline::magic,
           .fields = korveline::fields,
           .headerSize = korveline::headerSize,
           .versionField = korveline::fieldRevision,
           .lengthField = korveline::fieldLength,
           .maxPayload = korveline::maxPayload,
           .signatureArea = korveline::signatureArea,
           .blockNotWritten = "Could not write tango.bin",
           .lensNotWritten = "Could not write intrinsics",
           .locate = korveline::locate,
           .makeCutter = make<EEPROMKorvelineCutter>},
};

constexpr bool standAtTheirNumbers() {
    for (std::size_t i = 0; i < all.size(); ++i) {
        if (all[i].number != static_cast<int>(i)) {
            return false;
        }
    }
    return true;
}
static_assert(standAtTheirNumbers());

}  // namespace

constinit const std::span<const Layout> layouts = all;

const Layout* layoutOf(std::int64_t number) {
    const auto index = static_cast<std::uint64_t>(number);
    return index < layouts.size() ? &layouts[index] : nullptr;
}

}  // namespace calcut::image
