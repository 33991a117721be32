// calcut make: dumps and packed calibrations for people who have no module at hand.
#include <algorithm>
#include <charconv>
#include <memory>
#include <optional>
#include <random>
#include <stdexcept>
#include <string>

#include <fmt/format.h>

#include "commands.h"
#include "Output.h"
#include "writer/ImageLayout.h"
#include "writer/writer.h"

namespace calcut::tools {

namespace {

// Far above any sensor, and small enough not to bring a machine down by a typing error.
constexpr std::uint64_t mostPixels = std::uint64_t{1} << 24;

constexpr unsigned defaultTableBits = 12;

struct MakeOptions {
    std::string layout = "v7";
    std::optional<unsigned> signature;
    std::string size = "224x172";
    unsigned frequencies = 3;
    bool noStraylight = false;
    unsigned custom = 2;
    std::optional<unsigned> tableBits;
    float straylightExponent = 2.0F;
    std::uint64_t seed = 1;
    bool bare = false;
    std::string output;
};

struct SensorSize {
    std::uint16_t columns, rows;
};

std::optional<SensorSize> parseSize(const std::string& text) {
    SensorSize size{};
    const char* end = text.data() + text.size();
    const auto columns = std::from_chars(text.data(), end, size.columns);
    if (columns.ec != std::errc() || columns.ptr == end || *columns.ptr != 'x') {
        return std::nullopt;
    }
    const auto rows = std::from_chars(columns.ptr + 1, end, size.rows);
    if (rows.ec != std::errc() || rows.ptr != end) {
        return std::nullopt;
    }
    return size;
}

std::string checkSize(const std::string& text) {
    const auto size = parseSize(text);
    if (!size) {
        return "give columns and rows of at most 65535 each, for instance 224x172, not " + text;
    }
    if (std::uint64_t{size->columns} * size->rows > mostPixels) {
        return fmt::format("{} is more than {} pixels", text, mostPixels);
    }
    return {};
}

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

std::string contentText(const MakeOptions& options, const writer::Calibration& calibration,
                        unsigned tableBits) {
    std::string text = fmt::format("{} x {} pixels, {} frequenc{}, {}", calibration.columns,
                                   calibration.rows, calibration.frequencies.size(),
                                   calibration.frequencies.size() == 1 ? "y" : "ies",
                                   tableBits == 0 ? std::string("tables of plain floats")
                                                  : fmt::format("tables of {} bits", tableBits));
    if (options.layout == "korveline" && !options.tableBits) {
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

int make(const MakeOptions& options) {
    const bool korveline = options.layout == "korveline";
    const SensorSize size = *parseSize(options.size);
    writer::CalibrationOptions content;
    content.columns = size.columns;
    content.rows = size.rows;
    content.frequencies = options.frequencies;
    content.straylight = !options.noStraylight;
    content.custom = options.custom;
    content.straylightExponent = options.straylightExponent;
    content.seed = options.seed;

    writer::Calibration calibration;
    try {
        calibration = writer::makeCalibration(content);
    } catch (const std::invalid_argument& error) {
        throw CLI::ValidationError("--size", error.what());
    }

    writer::PackOptions pack;
    pack.valueBits = options.tableBits.value_or(defaultTableBits);
    if (korveline && !options.tableBits) {
        const auto widest = widestTable(calibration, korvelineRoom(options));
        if (!widest) {
            printError(options.output,
                       fmt::format("the calibration of a {} sensor with {} frequencies does not "
                                   "fit the {} bytes of a Korveline payload at any width",
                                   options.size, options.frequencies, korvelineRoom(options)));
            return exitFailed;
        }
        pack.valueBits = *widest;
    }
    writer::Bytes bytes;
    try {
        bytes = writer::packCalibration(calibration, pack);
    } catch (const std::length_error& error) {
        printError(options.output,
                   fmt::format("{} ({}, {} bits)", error.what(), options.size, pack.valueBits));
        return exitFailed;
    }
    const char* what = "packed calibration";
    if (!options.bare && korveline) {
        if (bytes.size() > korvelineRoom(options)) {
            printError(options.output,
                       fmt::format("the calibration takes {} bytes, a Korveline payload has room "
                                   "for {}; leave --table-bits out to have a width chosen",
                                   bytes.size(), korvelineRoom(options)));
            return exitFailed;
        }
        writer::KorvelineOptions korvelineOptions;
        if (options.signature) {
            korvelineOptions.signature = makeSignature(*options.signature, options.seed);
        }
        bytes = writer::makeKorvelineImage(bytes, korvelineOptions);
        what = "Korveline dump";
    } else if (!options.bare) {
        bytes = writer::makeV7Image(bytes);
        what = "v7 dump";
    }
    if (!writeOutput(options.output, bytes)) {
        return exitFailed;
    }
    const bool toStdout = options.output == "-";
    fmt::print(toStdout ? stderr : stdout, "{}: {}, {} bytes: {}\n",
               toStdout ? "standard output" : options.output, what, bytes.size(),
               contentText(options, calibration, pack.valueBits));
    return exitOk;
}

}  // namespace

void addMakeCommand(CLI::App& app, int& exitCode) {
    auto options = std::make_shared<MakeOptions>();
    CLI::App* command = app.add_subcommand("make", "Make a dump with a plausible calibration");
    command->footer(R"(The same options give the same bytes on every machine.

Examples:
  calcut make -o module.bin
  calcut make --size 320x240 --frequencies 8 --seed 7 -o large.bin
  calcut make --layout korveline --signature 64 -o signed.bin
  calcut make --bare -o - | calcut inspect -)");
    CLI::Option* layout =
        command->add_option("--layout", options->layout, "Layout of the dump: v7 or korveline")
            ->check(CLI::IsMember({"v7", "korveline"}))
            ->type_name("LAYOUT")
            ->capture_default_str();
    command
        ->add_option("--signature", options->signature,
                     "Put a signature of N bytes behind a Korveline payload (0: an area without "
                     "signature, which no cut accepts)")
        ->check(CLI::Range(0U, static_cast<unsigned>(image::korveline::maxSignature)))
        ->type_name("N");
    command->add_option("--size", options->size, "Columns and rows of the sensor")
        ->check(CLI::Validator(checkSize, ""))
        ->type_name("WxH")
        ->capture_default_str();
    command->add_option("--frequencies", options->frequencies, "Modulation frequencies")
        ->check(CLI::Range(1U, 8U))
        ->type_name("N")
        ->capture_default_str();
    command->add_flag("--no-straylight", options->noStraylight, "Leave the straylight profile out");
    command->add_option("--custom", options->custom, "Custom blocks")
        ->check(CLI::Range(0U, 5U))
        ->type_name("N")
        ->capture_default_str();
    command
        ->add_option("--table-bits", options->tableBits,
                     "Bits of a value in the per-pixel tables, 0 for plain floats (12; for "
                     "Korveline the widest up to 12 that fit)")
        ->check(CLI::Range(0U, 31U))
        ->type_name("N");
    command
        ->add_option("--straylight-exponent", options->straylightExponent,
                     "Exponent of the straylight distance norm, 2 is Euclidean")
        ->check(CLI::PositiveNumber)
        ->type_name("P")
        ->capture_default_str();
    command->add_option("--seed", options->seed, "Seed of everything that varies between modules")
        ->type_name("N")
        ->capture_default_str();
    command->add_flag("--bare", options->bare, "Write the packed calibration without an image")
        ->excludes(layout);
    command->add_option("-o,--output", options->output, "File to write, - for standard output")
        ->required()
        ->type_name("FILE");
    command->callback([options, &exitCode] {
        if (options->signature && options->layout != "korveline") {
            throw CLI::ValidationError("--signature", "only Korveline dumps carry a signature");
        }
        exitCode = make(*options);
    });
}

}  // namespace calcut::tools
