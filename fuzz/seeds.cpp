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

// For the target module: one image with everything, and small ones of each kind, so that every
// truncation and flipped bit is tried, with length and checksum put right or as they are.
std::vector<Bytes> modules() {
    constexpr unsigned v7 = 0, korveline = 1, bare = 2, repaired = 4;
    const std::vector<Bytes> all = calibrations();
    const Bytes& calibration = all.front();
    writer::KorvelineOptions signedRecord;
    signedRecord.signature = Bytes(64, 0x5A);
    std::vector<Bytes> seeds;
    for (const auto& [mode, image] :
         {std::pair(v7, writer::makeV7Image(all[2])),
          std::pair(v7, writer::makeV7Image(calibration)),
          std::pair(v7 | repaired, writer::makeV7Image(calibration)),
          std::pair(korveline | repaired, writer::makeKorvelineImage(calibration)),
          std::pair(korveline | repaired, writer::makeKorvelineImage(calibration, signedRecord)),
          std::pair(bare, calibration)}) {
        seeds.push_back({static_cast<std::uint8_t>(mode)});
        seeds.back().insert(seeds.back().end(), image.begin(), image.end());
    }
    // The version of a v7 image is no payload type, even where it is that of signed ones.
    seeds.push_back(seeds[1]);
    seeds.back()[7] = 37;
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

}  // namespace

std::vector<Bytes> seeds(std::string_view target) {
    if (target == "calibration") {
        return calibrations();
    }
    if (target == "images") {
        return imagesWithMode();
    }
    if (target == "module") {
        return modules();
    }
    if (target == "note") {
        const std::string note =
            R"({"schema":3,"source":"/l1/m.bin","bytes":9,"files":{"qov.spc":{"bytes":7}}})";
        return {{note.begin(), note.end()}, Bytes(600, '['), ramps(256).front()};
    }
    if (target == "structured") {
        return ramps(64);
    }
    if (target == "sequences" || target == "exhaustion") {
        return ramps(192);
    }
    std::vector<Bytes> seeds = ramps(2048);
    seeds.push_back(ramps(256).front());
    return seeds;
}

}  // namespace fuzz
