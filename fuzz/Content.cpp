#include "Content.h"

#include <algorithm>
#include <string>

#include "targets.h"

namespace fuzz {

namespace writer = calcut::writer;

namespace {

float tableValue(Input& input) {
    return static_cast<float>(input.word()) * 0x1p-16F - 32768.0F;
}

template <std::size_t N>
void fill(std::array<float, N>& values, Input& input) {
    std::generate(values.begin(), values.end(), [&] { return input.anyFloat(); });
}

writer::Wiggling makeWiggling(std::size_t entries, Input& input) {
    writer::Wiggling wiggling;
    wiggling.header = input.anyFloat();
    for (auto* column : {&wiggling.third, &wiggling.first, &wiggling.second}) {
        column->resize(entries);
        std::generate(column->begin(), column->end(), [&] { return input.anyFloat(); });
    }
    return wiggling;
}

writer::Frequency makeFrequency(std::size_t pixels, Input& input) {
    writer::Frequency frequency;
    frequency.id = input.word();
    frequency.pixelTable.resize(pixels);
    std::generate(frequency.pixelTable.begin(), frequency.pixelTable.end(),
                  [&] { return tableValue(input); });
    fill(frequency.valuesA, input);
    fill(frequency.valuesB, input);
    if (input.flag()) {
        frequency.scalar = input.anyFloat();
    }
    const auto most = static_cast<unsigned>(std::min<std::size_t>(5, (pixels - 1) / 3));
    frequency.wigglingA = makeWiggling(input.between(1, most), input);
    frequency.wigglingB = makeWiggling(input.between(1, most), input);
    return frequency;
}

writer::Straylight makeStraylight(Input& input) {
    writer::Straylight straylight;
    straylight.scale = input.anyFloat();
    fill(straylight.radius, input);
    fill(straylight.value, input);
    straylight.exponent = input.anyFloat();
    straylight.offset = input.anyFloat();
    straylight.centre = input.anyFloat();
    straylight.psfWidth = input.between(0, 40);
    straylight.psfHeight = input.between(0, 40);
    return straylight;
}

std::string makeText(std::size_t pixels, Input& input) {
    const auto most = static_cast<unsigned>(std::min<std::size_t>(63, 4 * pixels));
    const Bytes bytes = input.bytes(input.between(0, most));
    return std::string(bytes.begin(), bytes.end());
}

}  // namespace

calcut::writer::Calibration makeContent(Input& input) {
    writer::Calibration content;
    content.columns = static_cast<std::uint16_t>(input.between(2, 16));
    content.rows = static_cast<std::uint16_t>(input.between(2, 6));
    const std::size_t pixels = std::size_t{content.columns} * content.rows;
    content.auxFlag = input.byte();
    fill(content.lens, input);
    content.mask.resize(pixels);
    std::generate(content.mask.begin(), content.mask.end(), [&] { return input.word(); });
    content.pixelValues.resize(pixels);
    std::generate(content.pixelValues.begin(), content.pixelValues.end(),
                  [&] { return tableValue(input); });
    if (input.flag()) {
        content.date = input.word();
    }
    if (input.flag()) {
        content.text1 = makeText(pixels, input);
        content.text2 = makeText(pixels, input);
    }
    if (input.flag()) {
        content.idBytes = input.bytes(input.between(0, 32));
    }
    if (input.flag()) {
        const std::uint32_t codes = input.word();
        content.idCodes = {static_cast<std::uint16_t>(codes >> 16),
                           static_cast<std::uint16_t>(codes & 0xFFFFU)};
    }
    if (pixels >= 32 && input.flag()) {
        content.straylight = makeStraylight(input);
    }
    const unsigned frequencies = input.between(1, 8);
    for (unsigned k = 0; k < frequencies; ++k) {
        content.frequencies.push_back(makeFrequency(pixels, input));
    }
    const unsigned custom = input.between(0, 5);
    for (unsigned k = 0; k < custom; ++k) {
        content.custom.push_back(input.bytes(input.byte()));
    }
    return content;
}

}  // namespace fuzz
