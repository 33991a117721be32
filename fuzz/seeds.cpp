#include <algorithm>
#include <string>

#include "targets.h"
#include "writer/writer.h"

namespace fuzz {

namespace {

namespace writer = calcut::writer;

Bytes packed(std::uint16_t columns, std::uint16_t rows, unsigned frequencies, unsigned custom,
             unsigned valueBits, writer::CountForm form) {
    writer::CalibrationOptions options;
    options.columns = columns;
    options.rows = rows;
    options.frequencies = frequencies;
    options.custom = custom;
    writer::PackOptions pack;
    pack.valueBits = valueBits;
    pack.form = form;
    return packCalibration(makeCalibration(options), pack);
}

std::vector<Bytes> calibrations() {
    std::vector<Bytes> seeds = {packed(2, 2, 1, 0, 0, writer::CountForm::Short),
                                packed(8, 4, 2, 2, 12, writer::CountForm::Long),
                                packed(9, 5, 8, 5, 31, writer::CountForm::Short)};
    // A header that claims the largest image, and one with no pixels.
    seeds.push_back({'Q', 'O', 'V', 'R', 'X', 'F', 1, 255, 255, 255, 255, 255});
    seeds.push_back({'Q', 'O', 'V', 'R', 'X', 'F', 1, 0, 0, 0, 1, 255});
    return seeds;
}

std::vector<Bytes> imagesWithMode() {
    std::vector<Bytes> seeds;
    const auto add = [&](std::uint8_t mode, Bytes image) {
        image.insert(image.begin(), mode);
        seeds.push_back(std::move(image));
    };
    for (const Bytes& calibration : calibrations()) {
        writer::KorvelineOptions signedRecord;
        signedRecord.signature = Bytes(64, 0x5A);
        signedRecord.address = 0x2100;
        const Bytes v7 = writer::makeV7Image(calibration);
        add(0, v7);
        add(2, v7);
        add(1, writer::makeKorvelineImage(calibration));
        add(3, writer::makeKorvelineImage(calibration, signedRecord));
    }
    return seeds;
}

// Bytes that count up, with a stride for each seed: enough for every choice that a target draws.
std::vector<Bytes> ramps(std::size_t size) {
    std::vector<Bytes> seeds;
    for (unsigned stride = 1; stride <= 8; ++stride) {
        Bytes ramp(size);
        unsigned value = 0;
        std::generate(ramp.begin(), ramp.end(), [&] {
            value += stride * 37U;
            return static_cast<std::uint8_t>((value ^ (value >> 8)) & 0xFFU);
        });
        seeds.push_back(std::move(ramp));
    }
    return seeds;
}

// What each byte chooses stands in sequences.cpp; the slot is always 0.
std::vector<Bytes> callSequences() {
    const Bytes newRecord = {0, 0, 0, 0, 0};         // readCalibrationExt: 2 x 2
    const Bytes claim68x0 = {3, 0, 1, 0, 68, 0, 0};  // readRXHandlerCalibration: a header alone
    const Bytes claim0x38 = {3, 0, 1, 0, 0, 38, 0};
    const Bytes read2x2 = {3, 0, 0, 0};
    const Bytes read19x30 = {3, 0, 0, 5};
    const Bytes directionsOfNow = {6, 0, 0};  // calcRXPsfAndDirections(columns x rows)
    const Bytes addNoDirections = {8, 0, 0};
    const Bytes copyAndBack = {11, 0, 1, 11, 1, 0};
    const Bytes registerHost = {1, 0, 1, 0};
    const Bytes newOfHost = {0, 0, 7, 0, 0, 2, 2,
                             0, 0, 0, 0, 0, 0};  // 2 x 2, imagerArea left alone
    const Bytes straylightAndCustom = {0, 0, 0, 2, 1, 12, 0, 1, 0, 13, 0, 14, 0};
    const Bytes hostTable = {5, 0, 0, 2, 0, 56, 66, 2, 2, 1, 0, 9, 1, 0};
    const std::vector<std::vector<Bytes>> sequences = {
        // An image without pixels took the limit off a record that had been read before.
        {newRecord, claim68x0, read19x30},
        {newRecord, claim68x0, copyAndBack, read19x30},
        // Directions of one image size stayed for another.
        {newRecord, claim0x38, directionsOfNow, read2x2},
        {newRecord, claim0x38, addNoDirections, read2x2},
        {registerHost, newOfHost, addNoDirections, read2x2},
        {straylightAndCustom, copyAndBack, hostTable, directionsOfNow, Bytes{12, 0, 1, 0, 13, 0}}};
    std::vector<Bytes> seeds;
    for (const std::vector<Bytes>& calls : sequences) {
        Bytes& seed = seeds.emplace_back();
        for (const Bytes& call : calls) {
            seed.insert(seed.end(), call.begin(), call.end());
        }
    }
    return seeds;
}

}  // namespace

std::vector<Bytes> seeds(std::string_view target) {
    if (target == "calibration") {
        return calibrations();
    }
    if (target == "images") {
        return imagesWithMode();
    }
    if (target == "sequences") {
        return callSequences();
    }
    if (target == "structured") {
        return ramps(64);
    }
    std::vector<Bytes> seeds = ramps(2048);
    seeds.push_back(ramps(256).front());
    return seeds;
}

}  // namespace fuzz
