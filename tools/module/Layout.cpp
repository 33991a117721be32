#include "tools/module/Layout.h"

#include <algorithm>
#include <vector>

namespace calcut::module {

std::span<const Layout> knownLayouts() {
    static const std::vector<Layout> all = [] {
        std::vector<Layout> known;
        for (const image::Layout& layout : image::layouts) {
            known.push_back({layout.name, layout.magic, &layout});
        }
        known.push_back(Layout::Packed);
        return known;
    }();
    return all;
}

std::optional<Layout> layoutNamed(std::string_view name) {
    const auto known = knownLayouts();
    const auto found = std::ranges::find(known, name, &Layout::name);
    return found == known.end() ? std::nullopt : std::optional(*found);
}

Layout classify(files::ByteView file) {
    const std::string_view start(reinterpret_cast<const char*>(file.data()), file.size());
    for (const Layout& known : knownLayouts()) {
        if (start.starts_with(known.magic)) {
            return known;
        }
    }
    return Layout::Unknown;
}

}  // namespace calcut::module
