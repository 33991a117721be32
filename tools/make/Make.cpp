#include "tools/make/Make.h"

#include <sys/stat.h>

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <random>
#include <stdexcept>
#include <vector>

#include <fmt/format.h>

#include "cutter/korvelineImage.h"
#include "tools/commands.h"
#include "tools/terminal/Escape.h"
#include "tools/terminal/OutputFile.h"
#include "tools/terminal/Terminal.h"
#include "writer/writer.h"

namespace calcut::tools {

namespace {

constexpr std::uint64_t leastPixels = 4;
/// Far above any sensor, and small enough not to bring a machine down by a typing error.
constexpr std::uint64_t mostPixels = std::uint64_t{1} << 24;

constexpr unsigned defaultTableBits = 12;

std::vector<std::uint8_t> makeSignature(unsigned length, std::uint64_t seed) {
    // Not the calibration's own numbers.
    std::mt19937_64 generator(~seed);
    std::vector<std::uint8_t> signature(length);
    std::generate(signature.begin(), signature.end(),
                  [&] { return static_cast<std::uint8_t>(generator() >> 56); });
    return signature;
}

std::size_t korvelineRoom(const MakeOptions& options) {
    namespace layout = image::korveline;
    return layout::maxPayload - (options.signature ? layout::signatureArea : 0);
}

// The widest tables that a Korveline payload can hold; nothing when not even one bit a pixel fits.
std::optional<unsigned> widestTable(const writer::Calibration& calibration, std::size_t room) {
    const std::uint64_t tableValues =
        std::uint64_t{calibration.mask.size()} * (1 + calibration.frequencies.size());
    for (unsigned bits = defaultTableBits; bits >= 1; --bits) {
        writer::PackOptions pack;
        pack.valueBits = bits;
        if (tableValues * bits / 8 <= room &&
            writer::packCalibration(calibration, pack).size() <= room) {
            return bits;
        }
    }
    return std::nullopt;
}

const char* kindOf(Layout layout) {
    switch (layout) {
        case Layout::Packed:
            return "packed calibration";
        case Layout::Korveline:
            return "Korveline dump";
        default:
            return "v7 dump";
    }
}

std::string contentText(const MakeOptions& options, const writer::Calibration& calibration,
                        unsigned tableBits) {
    std::string text = fmt::format("{} x {} pixels, {} frequenc{}, {}", calibration.columns,
                                   calibration.rows, calibration.frequencies.size(),
                                   calibration.frequencies.size() == 1 ? "y" : "ies",
                                   tableBits == 0 ? std::string("tables of plain floats")
                                                  : fmt::format("tables of {} bits", tableBits));
    if (options.layout == Layout::Korveline && !options.tableBits) {
        text += " (the widest that fit)";
    }
    text += calibration.straylight ? ", straylight" : ", no straylight";
    text += fmt::format(", {} custom block{}", calibration.custom.size(),
                        calibration.custom.size() == 1 ? "" : "s");
    if (options.signature) {
        text += fmt::format(", signature of {} bytes", *options.signature);
    }
    return text + fmt::format(", seed {}", options.seed);
}

writer::Calibration makeContent(const MakeOptions& options) {
    writer::CalibrationOptions content;
    content.columns = options.columns;
    content.rows = options.rows;
    content.frequencies = options.frequencies;
    content.straylight = options.straylight;
    content.custom = options.custom;
    content.straylightExponent = options.straylightExponent;
    content.seed = options.seed;
    return writer::makeCalibration(content);
}

// The file's bytes. Throws std::length_error with a reason when it cannot be made.
writer::Bytes makeBytes(const MakeOptions& options, const writer::Calibration& calibration,
                        unsigned& tableBits) {
    const std::size_t room = korvelineRoom(options);
    const bool korveline = options.layout == Layout::Korveline;
    if (korveline && !options.tableBits) {
        const auto widest = widestTable(calibration, room);
        if (!widest) {
            throw std::length_error(fmt::format(
                "the calibration of a {}x{} sensor with {} frequencies does not fit the {} bytes "
                "of a Korveline payload at any width",
                options.columns, options.rows, options.frequencies, room));
        }
        tableBits = *widest;
    }
    writer::PackOptions pack;
    pack.valueBits = tableBits;
    writer::Bytes packed = writer::packCalibration(calibration, pack);
    if (options.layout == Layout::Packed) {
        return packed;
    }
    if (!korveline) {
        return writer::makeV7Image(packed);
    }
    if (packed.size() > room) {
        throw std::length_error(fmt::format(
            "the calibration takes {} bytes, a Korveline payload has room for {}; leave "
            "--table-bits out to have a width chosen",
            packed.size(), room));
    }
    writer::KorvelineOptions image;
    if (options.signature) {
        image.signature = makeSignature(*options.signature, options.seed);
    }
    return writer::makeKorvelineImage(packed, image);
}

std::string whyNotMade(const MakeOptions& options) {
    struct stat status {};
    const bool isFile = options.output != "-" && stat(options.output.c_str(), &status) == 0 &&
                        S_ISREG(status.st_mode);
    return isFile && !options.force ? "exists; --force replaces it"
                                    : whyNotWritable(options.output, {});
}

}  // namespace

std::string parseSize(const std::string& text, MakeOptions& options) {
    const char* end = text.data() + text.size();
    const auto columns = std::from_chars(text.data(), end, options.columns);
    const bool cross = columns.ec == std::errc() && columns.ptr != end && *columns.ptr == 'x';
    const auto rows = cross ? std::from_chars(columns.ptr + 1, end, options.rows) : columns;
    if (!cross || rows.ec != std::errc() || rows.ptr != end) {
        return "give columns and rows of at most 65535 each, for instance 224x172, not " + text;
    }
    const std::uint64_t pixels = std::uint64_t{options.columns} * options.rows;
    return pixels >= leastPixels && pixels <= mostPixels
               ? std::string()
               : fmt::format("{} has {} pixels, not {} to {}", text, pixels, leastPixels,
                             mostPixels);
}

int runMake(const MakeOptions& options) {
    const std::string refusal = whyNotMade(options);
    if (!refusal.empty()) {
        printError(options.output, refusal);
        return exitFailed;
    }
    unsigned tableBits = options.tableBits.value_or(defaultTableBits);
    const writer::Calibration calibration = makeContent(options);
    writer::Bytes bytes;
    try {
        bytes = makeBytes(options, calibration, tableBits);
    } catch (const std::length_error& error) {
        printError(options.output, error.what());
        return exitFailed;
    }
    if (!writeOutput(options.output, bytes)) {
        return exitFailed;
    }
    const bool toStdout = options.output == "-";
    const std::string text = fmt::format(
        "{}: {}, {} bytes: {}\n",
        toStdout ? std::string("standard output") : escapePath(options.output),
        kindOf(options.layout), bytes.size(), contentText(options, calibration, tableBits));
    if (!toStdout) {
        print(text);
    } else if (terminal().verbosity != Verbosity::Quiet) {
        (void)std::fputs(text.c_str(), stderr);
    }
    return exitOk;
}

}  // namespace calcut::tools
