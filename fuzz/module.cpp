// Arbitrary bytes as people see them: diagnosis, text, JSON, comparison and exports. The first byte
// chooses the layout, and whether length and checksum of the image are put right.
#include <algorithm>
#include <array>
#include <optional>
#include <string>

#include "calcut/cutter.h"
#include "Scratch.h"
#include "targets.h"
#include "tools/compare/Comparison.h"
#include "tools/export/Export.h"
#include "tools/inspect/Inspect.h"
#include "tools/module/Diagnosis.h"
#include "tools/module/Layout.h"
#include "tools/module/Tree.h"
#include "writer/writer.h"

namespace fuzz {

namespace {

using calcut::module::Diagnosis;
using calcut::module::Layout;

Layout layoutFor(unsigned choice, const Bytes& dump) {
    const auto known = calcut::module::knownLayouts();
    return choice < known.size() ? known[choice] : calcut::module::classify(dump);
}

/// Stores the payload length and the checksum that a dump should have.
void repair(const Layout& layout, Bytes& dump) {
    namespace image = calcut::image;
    const auto put = [&dump](const image::Field& field, std::uint64_t value) {
        for (std::size_t i = 0; i < field.size; ++i) {
            dump[field.offset + i] = static_cast<std::uint8_t>(value >> (8 * i));
        }
    };
    const auto& fields = layout.image->fields;
    image::Record record = layout.image->locate(dump, 0);
    if (record.refusal && record.refusal->cause == image::Cause::payloadOutside) {
        put(fields[layout.image->lengthField], record.payloadPresent);
        record = layout.image->locate(dump, 0);
    }
    if (record.refusal && record.refusal->cause == image::Cause::checksum) {
        put(*std::ranges::find(fields, record.refusal->offset, &image::Field::offset),
            *record.computedCrc);
    }
}

bool cuts(const Bytes& dump, const Layout& layout) {
    const Scratch& scratch = Scratch::ofThisProcess();
    scratch.clear();
    scratch.putDump(dump);
    EEPROMMetaInformation meta;
    return cutEEPROMContent(layout.image->number, scratch.dump().c_str(), scratch.out().c_str(),
                            &meta) == 0;
}

std::string told(const Diagnosis& about) {
    std::string text;
    for (const auto* findings : {&about.faults, &about.warnings}) {
        for (const calcut::module::Finding& finding : *findings) {
            text += describe(finding) + "\n";
        }
    }
    return text;
}

void show(const Diagnosis& about) {
    const calcut::text::Json tree = calcut::module::inspectTree(about, "dump");
    require(!calcut::text::jsonText(tree).empty(), "every dump has its JSON");
    for (const std::size_t width : {0U, 20U, 80U, 200U}) {
        require(!calcut::inspect::textOf(about, "module", {width, nullptr}).empty(),
                "and its text");
    }
    for (const calcut::module::Finding& fault : about.faults) {
        require(fault.name != "unexplained", "every fault has a cause");
    }
}

void compare(const Diagnosis& about) {
    static const Bytes seed = calcut::writer::packCalibration(
        calcut::writer::makeCalibration({.columns = 8, .rows = 4, .frequencies = 2}));
    static const Diagnosis other =
        calcut::module::diagnose(seed, Layout::Packed, vantric::Wanted::everything);
    const auto equal = [](const Diagnosis& a, const Diagnosis& b) {
        return calcut::compare::Comparison(a, b, {}).equal;
    };
    require(equal(about, about), "a module is equal to itself");
    require(equal(about, other) == equal(other, about), "whichever comes first");
}

void exportAll(const Diagnosis& about) {
    if (!about.wasRead(RX_BLOCK_LENS_PARAMETERS)) {
        return;
    }
    const std::string source = "dump";
    for (const auto& format : calcut::exporting::formats) {
        for (const auto& file : calcut::exporting::filesOf(format, {about, source})) {
            require(!file.name.empty(), "every file has a name");
            static_cast<void>(file.text());
        }
    }
}

}  // namespace

void module(const std::uint8_t* data, std::size_t size) {
    if (size < 2) {
        return;  // an empty dump is refused when it is loaded
    }
    Bytes dump(data + 1, data + size);
    const Layout layout = layoutFor(data[0] & 3U, dump);
    if (layout.image != nullptr && (data[0] & 4U) != 0) {
        repair(layout, dump);
    }
    const Diagnosis asCut = calcut::module::diagnose(dump, layout, vantric::Wanted::cut);
    require(asCut.cuttable() == (layout.image != nullptr && cuts(dump, layout)),
            "a dump is cuttable exactly when the library's cut returns 0");
    require(whyNotCut(asCut).has_value() != asCut.cuttable(), "or there is a reason");

    const Diagnosis about = calcut::module::diagnose(dump, layout, vantric::Wanted::everything);
    require(told(asCut) == told(about), "a look at less finds the same");
    static_cast<void>(calcut::module::tableWarnings(about));
    show(about);
    if (about.intact()) {
        compare(about);
        exportAll(about);
    }
}

}  // namespace fuzz
