// A calibration with the input's content, written and read back: every value must come back as the
// format promises.
#include <algorithm>
#include <bit>
#include <cfloat>
#include <cmath>
#include <cstring>
#include <limits>
#include <set>
#include <string>

#include "calcut/vantric.h"
#include "calcut/vantric_rx.h"
#include "Content.h"
#include "cutter/EEPROMKorvelineReader.h"
#include "cutter/EEPROMv7Reader.h"
#include "Input.h"
#include "Reading.h"
#include "Scratch.h"
#include "targets.h"
#include "writer/writer.h"

namespace fuzz {

namespace {

namespace writer = calcut::writer;

bool sameBits(float a, float b) {
    return std::bit_cast<std::uint32_t>(a) == std::bit_cast<std::uint32_t>(b);
}

// The format has every normal float, no negative zero, and the largest number for what is beyond.
bool readsAs(float written, float read) {
    if (std::isnan(written) || std::isinf(written)) {
        return sameBits(read, std::signbit(written) ? -FLT_MAX : FLT_MAX);
    }
    if (std::fabs(written) >= FLT_MIN) {
        return sameBits(read, written);
    }
    return std::fabs(read - written) <= 0x1p-128F;
}

bool allRead(const float* read, const float* written, std::size_t count) {
    return std::equal(written, written + count, read, readsAs);
}

void tableRead(const float* read, const std::vector<float>& written, unsigned bits) {
    if (bits == 0) {
        require(allRead(read, written.data(), written.size()), "plain tables are exact");
        return;
    }
    const auto [low, high] = std::minmax_element(written.begin(), written.end());
    const writer::FixedPoint fixedPoint = writer::fixedPointFor(*low, *high, bits);
    for (std::size_t i = 0; i < written.size(); ++i) {
        const std::uint32_t steps = writer::quantise(written[i], fixedPoint, bits);
        const float expected = fixedPoint.offset + fixedPoint.scale * static_cast<float>(steps);
        // Half a step of the fixed point, and what single precision rounds away.
        const float tolerance = 0.5001F * fixedPoint.scale + 0x1p-7F;
        require(sameBits(read[i], expected + 0.0F) && std::fabs(read[i] - written[i]) <= tolerance,
                "packed tables come back quantised");
    }
}

std::uint32_t truncated(float value) {
    if (std::isnan(value)) {
        return std::signbit(value) ? 0U : 0xFFFFFFFFU;  // the format has the largest number instead
    }
    const double clamped = std::clamp(static_cast<double>(value), 0.0, 4294967295.0);
    return static_cast<std::uint32_t>(clamped);
}

void wigglingRead(const VantricWigglingTable& read, const writer::Wiggling& written) {
    const std::size_t entries = written.first.size();
    float header;
    std::memcpy(&header, &read.header, sizeof header);
    require(read.capacity == entries && readsAs(written.header, header) &&
                allRead(read.first, written.first.data(), entries) &&
                allRead(read.third, written.third.data(), entries) &&
                std::equal(read.second, read.second + entries, written.second.begin(),
                           [](std::uint32_t a, float b) { return a == truncated(b); }),
            "wiggling tables come back");
}

void frequencyRead(const VantricFrequencyRecord& read, const writer::Frequency& written,
                   unsigned bits) {
    require(read.frequencyId == written.id, "the frequency comes back");
    tableRead(read.pixelTable, written.pixelTable, bits);
    require(allRead(read.valuesA, written.valuesA.data(), 4) &&
                allRead(read.valuesB, written.valuesB.data(), 4),
            "frequency values come back");
    require(written.scalar ? readsAs(*written.scalar, read.scalar) : std::isnan(read.scalar),
            "the scalar comes back, or is unset");
    wigglingRead(read.wigglingA, written.wigglingA);
    wigglingRead(read.wigglingB, written.wigglingB);
}

void straylightRead(const VantricCalibration& read, const writer::Straylight& written,
                    bool withPsf) {
    const std::size_t first = withPsf ? 1 : 0;  // the origin stands in front once there is a PSF
    require(readsAs(written.scale, read.straylightScale) &&
                allRead(read.straylightRadius + first, written.radius.data(), 13) &&
                allRead(read.straylightValue + first, written.value.data(), 13) &&
                readsAs(written.exponent, read.straylightExponent) &&
                readsAs(written.offset, read.straylightOffset) &&
                readsAs(written.centre, read.straylightCentre) &&
                read.psfWidth == written.psfWidth && read.psfHeight == written.psfHeight &&
                read.straylightPointCount == 13 + first,
            "the straylight profile comes back");
    require(!withPsf || sameBits(read.psf[0], read.straylightCentre),
            "the PSF's first element is the centre");
}

bool textReads(const char* read, const std::string& written) {
    return std::memcmp(read, written.c_str(), written.size() + 1) == 0;
}

void singlesRead(const VantricCalibration& read, const writer::Calibration& written) {
    require(read.imagerArea.columns == written.columns && read.imagerArea.rows == written.rows &&
                read.auxFlag == written.auxFlag,
            "size and flag come back");
    require(read.lensParameterCount == 9 && allRead(read.lensParameters, written.lens.data(), 9),
            "lens parameters come back");
    require(textReads(read.text1, written.text1.value_or("")) &&
                textReads(read.text2, written.text2.value_or("")),
            "texts come back");
    require(textReads(read.text0, written.date ? " (" + std::to_string(*written.date) + ")" : ""),
            "the date comes back");
    const Bytes idBytes = written.idBytes.value_or(Bytes(32));
    require(read.idBytesSize == idBytes.size() &&
                std::equal(idBytes.begin(), idBytes.end(), read.idBytes),
            "id bytes come back");
    require(read.idCode0 == (written.idCodes ? (*written.idCodes)[0] : 0xFFFF) &&
                read.idCode1 == (written.idCodes ? (*written.idCodes)[1] : 0xFFFF),
            "id codes come back");
}

void customRead(const VantricCalibration& read, const writer::Calibration& written) {
    require(read.customFieldCount == written.custom.size(), "custom fields are found");
    for (std::size_t k = 0; k < written.custom.size(); ++k) {
        const VantricCustomField& field = read.customFields[k];
        require(field.size == written.custom[k].size() &&
                    std::equal(written.custom[k].begin(), written.custom[k].end(), field.data),
                "custom fields come back");
    }
}

void everythingRead(const VantricCalibration& read, const writer::Calibration& written,
                    const writer::PackOptions& options, bool withPsf) {
    singlesRead(read, written);
    const auto low = static_cast<std::uint32_t>((std::uint64_t{1} << options.maskBits) - 1);
    require(std::equal(written.mask.begin(), written.mask.end(), read.pixelMask,
                       [&](std::uint32_t a, std::uint8_t b) { return (a & low & 0xFFU) == b; }),
            "the mask comes back");
    tableRead(read.pixelValues, written.pixelValues, options.valueBits);
    require(read.frequencyCount == written.frequencies.size(), "every frequency comes back");
    for (std::size_t k = 0; k < written.frequencies.size(); ++k) {
        frequencyRead(read.frequencies[k], written.frequencies[k], options.valueBits);
    }
    require(written.straylight.has_value() == !std::isnan(read.straylightScale),
            "straylight is set where it was written");
    if (written.straylight) {
        straylightRead(read, *written.straylight, withPsf);
    }
    customRead(read, written);
}

writer::Calibration without(writer::Calibration content, const std::set<std::uint8_t>& omitted) {
    const auto drop = [&](std::uint8_t id, auto& field) {
        if (omitted.count(id) != 0) {
            field.reset();
        }
    };
    drop(4, content.date);
    drop(5, content.text1);
    drop(6, content.text2);
    drop(7, content.idBytes);
    drop(8, content.idCodes);
    drop(9, content.straylight);
    return content;
}

void calibrationRead(const writer::Calibration& content, const writer::PackOptions& options,
                     bool withPsf) {
    const Bytes packed = writer::packCalibration(content, options);
    const writer::Calibration written = without(content, options.omit);
    VantricCalibration* raw = nullptr;
    const std::uint32_t status =
        vantric_readCalibrationExt(packed.data(), packed.size(), &raw, withPsf ? 1 : 0);
    Record read(raw);
    if (written.idCodes && (*written.idCodes)[0] == 0xFFFF) {
        require(status == VANTRIC_ERR_VALUE_UNSET, "an unset id code is refused");
        return;
    }
    require(status == VANTRIC_OK, "what the writer makes reads");
    require(read->firstCustomFieldId == 128 &&
                vantric_readCustomFields(packed.data(), packed.size(), raw) == VANTRIC_OK,
            "custom fields are read");
    everythingRead(*read, written, options, withPsf);
    const Record copy(vantric_copyCalibration(raw));
    read.reset();  // nothing of the copy goes with it
    everythingRead(*copy, written, options, withPsf);
}

void imagesRead(const Bytes& payload, std::uint32_t address, const Bytes& signature) {
    const Scratch& scratch = Scratch::ofThisProcess();
    scratch.putDump(writer::makeV7Image(payload));
    EEPROMv7Reader v7;
    v7.loadFile(scratch.dump());
    const DataBlock plain = v7.getNextDataBlock();
    require(plain.id == 7 && plain.data == payload, "a v7 image gives its payload");

    writer::KorvelineOptions options;
    options.address = address;
    if (!signature.empty()) {
        options.signature = signature;
    }
    scratch.putDump(writer::makeKorvelineImage(payload, options));
    EEPROMKorvelineReader korveline;
    korveline.loadFile(scratch.dump());
    const DataBlock block = korveline.getNextDataBlock();
    require(block.id == (signature.empty() ? 7 : 37) &&
                block.data.size() == payload.size() + (signature.empty() ? 0U : 128U) &&
                std::equal(payload.begin(), payload.end(), block.data.begin()) &&
                std::equal(signature.begin(), signature.end(),
                           block.data.begin() + static_cast<std::ptrdiff_t>(payload.size()) +
                               (signature.empty() ? 0 : 1)),
            "a Korveline image gives its payload and signature");
}

void bitsRead(Input& input) {
    const unsigned bits = input.between(1, 31);
    std::vector<std::uint32_t> values(input.between(0, 99));
    std::generate(values.begin(), values.end(),
                  [&] { return input.word() & ((std::uint32_t{1} << bits) - 1); });
    const std::vector<std::uint32_t> words = writer::packBits(values, bits);
    require(vantric_getRXPackedSize(values.size(), static_cast<std::uint8_t>(bits)) ==
                words.size() * sizeof(std::uint32_t),
            "packed values have their size");
    std::vector<std::uint32_t> read(values.size());
    require(vantric_unpackRXUint(words.data(), words.size(), values.size(),
                                 static_cast<std::uint8_t>(bits), read.data()) == VANTRIC_OK &&
                read == values,
            "packed values come back");
}

}  // namespace

void roundtrip(const std::uint8_t* data, std::size_t size) {
    Input input(data, size);
    writer::PackOptions options;
    options.maskBits = input.between(1, 31);
    options.valueBits = input.between(0, 31);
    options.form = input.flag() ? writer::CountForm::Long : writer::CountForm::Short;
    const bool withPsf = input.flag();
    for (std::uint8_t optional = 4; optional <= 9; ++optional) {
        if (input.between(0, 3) == 0) {
            options.omit.insert(optional);
        }
    }
    if (input.flag()) {
        imagesRead(input.bytes(1 + input.byte()), 0x2068U + input.byte() * 16U,
                   input.bytes(input.between(0, 127)));
    }
    bitsRead(input);
    calibrationRead(makeContent(input), options, withPsf);
}

}  // namespace fuzz
