#include "tools/make/Make.h"

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <limits>
#include <random>

#include <fmt/format.h>

#include "tools/files/OutputFile.h"
#include "tools/text/Escape.h"
#include "tools/text/Terminal.h"

namespace calcut::make {

namespace {

constexpr std::uint64_t leastPixels = 4;
/// Far above any sensor, and small enough not to bring a machine down by a typing error.
constexpr std::uint64_t mostPixels = std::uint64_t{1} << 24;

constexpr std::uint64_t defaultTableBits = 12;

module::Layout layoutOf(const MakeOptions& options) {
    return options.layout.value_or(module::knownLayouts().front());
}

/// The file, and how wide its tables are.
struct Made {
    writer::Bytes bytes;
    unsigned tableBits = 0;
};

/// In the widest tables that fit into the layout's payload when no width is asked for.
Made pack(const MakeOptions& options, const writer::Calibration& calibration) {
    const image::Layout* layout = layoutOf(options).image;
    constexpr std::size_t endless = std::numeric_limits<std::size_t>::max() / 8;
    const std::size_t area = layout != nullptr && options.signature ? layout->signatureArea : 0;
    const std::size_t room = layout == nullptr ? endless : layout->maxPayload - area;
    const std::uint64_t values = calibration.mask.size() * (1 + calibration.frequencies.size());
    Made made;
    made.tableBits = static_cast<unsigned>(
        options.tableBits.value_or(std::min(defaultTableBits, 8 * room / values)));
    for (;; --made.tableBits) {
        made.bytes = writer::packCalibration(calibration, {.valueBits = made.tableBits});
        if (made.bytes.size() <= room || options.tableBits || made.tableBits <= 1) {
            break;
        }
    }
    if (made.bytes.size() > room) {
        const std::string tooLarge =
            options.tableBits
                ? fmt::format(
                      "the calibration takes {} bytes, a {} payload has room for {}; "
                      "leave --table-bits out to have a width chosen",
                      made.bytes.size(), layout->title, room)
                : fmt::format(
                      "the calibration of a {}x{} sensor with {} frequencies does not fit the "
                      "{} bytes of a {} payload at any width",
                      calibration.columns, calibration.rows, calibration.frequencies.size(), room,
                      layout->title);
        throw text::Refused(options.output, tooLarge);
    }
    return made;
}

writer::Bytes makeV7(const writer::Bytes& calibration, const MakeOptions& /*options*/) {
    return writer::makeV7Image(calibration);
}

writer::Bytes makeKorveline(const writer::Bytes& calibration, const MakeOptions& options) {
    writer::KorvelineOptions image;
    if (options.signature) {
        // Not the calibration's own numbers.
        std::mt19937_64 generator(~options.content.seed);
        image.signature.emplace(*options.signature);
        std::ranges::generate(*image.signature, [&] { return std::uint8_t(generator() >> 56); });
    }
    return writer::makeKorvelineImage(calibration, image);
}

Made makeFile(const MakeOptions& options, const writer::Calibration& calibration) {
    // At the numbers of their layouts.
    constexpr std::array makers = {makeV7, makeKorveline};
    Made made = pack(options, calibration);
    if (const image::Layout* layout = layoutOf(options).image) {
        const auto number = static_cast<std::size_t>(layout->number);
        if (number >= makers.size()) {
            throw text::Refused(options.output, "{} dumps are only read, not made", layout->title);
        }
        made.bytes = makers[number](made.bytes, options);
    }
    return made;
}

std::string describe(const MakeOptions& options, const writer::Calibration& calibration,
                     const Made& made) {
    const image::Layout* layout = layoutOf(options).image;
    const bool narrowed = !options.tableBits && made.tableBits < defaultTableBits;
    const std::size_t frequencies = calibration.frequencies.size();
    return fmt::format(
        "{}: {}, {} bytes: {} x {} pixels, {} frequenc{}, tables of {}{}, {}straylight, {}{}, "
        "seed {}\n",
        options.output == "-" ? "standard output" : text::escapePath(options.output),
        layout == nullptr ? "packed calibration" : layout->title + std::string(" dump"),
        made.bytes.size(), calibration.columns, calibration.rows, frequencies,
        frequencies == 1 ? "y" : "ies",
        made.tableBits == 0 ? "plain floats" : fmt::format("{} bits", made.tableBits),
        narrowed ? " (the widest that fit)" : "", calibration.straylight ? "" : "no ",
        text::counted(calibration.custom.size(), "custom block"),
        options.signature ? fmt::format(", signature of {} bytes", *options.signature) : "",
        options.content.seed);
}

}  // namespace

std::optional<std::string> usageFault(const MakeOptions& options) {
    const image::Layout* layout = layoutOf(options).image;
    const bool takesSignature = layout != nullptr && layout->signatureArea != 0;
    return options.signature && !takesSignature
               ? std::optional<std::string>("only Korveline dumps carry a --signature")
               : std::nullopt;
}

std::string parseSize(const std::string& text, writer::CalibrationOptions& content) {
    const char* end = text.data() + text.size();
    const auto columns = std::from_chars(text.data(), end, content.columns);
    const bool cross = columns.ec == std::errc() && columns.ptr != end && *columns.ptr == 'x';
    const auto rows = cross ? std::from_chars(columns.ptr + 1, end, content.rows) : columns;
    if (!cross || rows.ec != std::errc() || rows.ptr != end) {
        return "give columns and rows of at most 65535 each, for instance 224x172, not " + text;
    }
    const std::uint64_t pixels = std::uint64_t{content.columns} * content.rows;
    const bool isSensor = pixels >= leastPixels && pixels <= mostPixels;
    return isSensor ? ""
                    : fmt::format("{} has {} pixels, not {} to {}", text, pixels, leastPixels,
                                  mostPixels);
}

int runMake(const MakeOptions& options) {
    files::checkWritable(options.output, {}, options.force);
    const writer::Calibration calibration = writer::makeCalibration(options.content);
    const Made made = makeFile(options, calibration);
    files::writeOutput(options.output, made.bytes);
    const std::string text = describe(options, calibration, made);
    if (options.output != "-") {
        text::print(text);
    } else if (text::terminal().verbosity != text::Verbosity::Quiet) {
        (void)std::fputs(text.c_str(), stderr);
    }
    return exitOk;
}

}  // namespace calcut::make
