#include <algorithm>
#include <cmath>
#include <random>
#include <stdexcept>

#include "calcut/vantric_rx.h"
#include "writer/writer.h"

namespace calcut::writer {

namespace {

// Readers decode the blocks that they do not store as they are (texts, date, straylight, wiggling)
// into a work buffer of 4 bytes per pixel; what does not fit there makes them refuse the whole
// calibration.
constexpr std::size_t smallestSensor = 4;
constexpr std::size_t straylightBytes = 128;
constexpr std::size_t customBlockBytes = 24;

// Only + - * / and sqrt reach the bytes: they round alike everywhere, sin and exp do not.
class Noise {
  public:
    explicit Noise(std::uint64_t seed) : generator_(seed) {}

    // [0, 1)
    float uniform() { return static_cast<float>(generator_() >> 40) * 0x1p-24F; }
    // [-amplitude, amplitude)
    float around(float amplitude) { return amplitude * (2.0F * uniform() - 1.0F); }
    std::uint32_t below(std::uint32_t bound) {
        return static_cast<std::uint32_t>((generator_() >> 32) * bound >> 32);
    }
    std::uint8_t byte() { return static_cast<std::uint8_t>(generator_() >> 56); }

  private:
    std::mt19937_64 generator_;
};

// Pixel position with the sensor's centre at 0 and its edges at -1 and 1.
struct Position {
    float x, y;
};

template <typename Function>
void forEachPixel(std::uint16_t columns, std::uint16_t rows, Function function) {
    std::size_t index = 0;
    for (unsigned v = 0; v < rows; ++v) {
        const float y = static_cast<float>(2 * v + 1) / static_cast<float>(rows) - 1.0F;
        for (unsigned u = 0; u < columns; ++u) {
            const float x = static_cast<float>(2 * u + 1) / static_cast<float>(columns) - 1.0F;
            function(index, Position{x, y});
            ++index;
        }
    }
}

// fx, fy, cx, cy, k1, k2, p1, p2, k3. The longer side sees 70 degrees: f = side / (2 tan 35).
std::array<float, 9> makeLens(std::uint16_t columns, std::uint16_t rows, Noise& noise) {
    const float f = static_cast<float>(std::max(columns, rows)) * 0.714074F;
    const float fx = f * (1.0F + noise.around(0.01F));
    const float fy = fx * (1.0F + noise.around(0.001F));
    const float cx =
        0.5F * static_cast<float>(columns - 1) + noise.around(0.01F) * static_cast<float>(columns);
    const float cy =
        0.5F * static_cast<float>(rows - 1) + noise.around(0.01F) * static_cast<float>(rows);
    const float k1 = -0.2F + noise.around(0.01F);
    const float k2 = 0.05F + noise.around(0.005F);
    const float p1 = noise.around(0.0005F);
    const float p2 = noise.around(0.0005F);
    const float k3 = -0.004F + noise.around(0.001F);
    return {fx, fy, cx, cy, k1, k2, p1, p2, k3};
}

// The image circle leaves the corners dark; a few pixels elsewhere are broken.
std::vector<std::uint32_t> makeMask(std::uint16_t columns, std::uint16_t rows, Noise& noise) {
    std::vector<std::uint32_t> mask(std::size_t{columns} * rows);
    const float circle = 1.72F + noise.around(0.04F);
    forEachPixel(columns, rows, [&](std::size_t index, Position at) {
        mask[index] = at.x * at.x + at.y * at.y <= circle ? 1 : 0;
    });
    const std::size_t broken = mask.size() / 8192;
    for (std::size_t i = 0; i < broken; ++i) {
        mask[noise.below(static_cast<std::uint32_t>(mask.size()))] = 0;
    }
    return mask;
}

// A bowl with a tilt, some ripple across the columns, and fine grain.
std::vector<float> makeTable(std::uint16_t columns, std::uint16_t rows, float level, float bowl,
                             float grain, Noise& noise) {
    std::vector<float> table(std::size_t{columns} * rows);
    const float tiltX = noise.around(0.3F * bowl);
    const float tiltY = noise.around(0.3F * bowl);
    const float twist = noise.around(0.2F * bowl);
    const float ripple = noise.around(0.2F * bowl);
    forEachPixel(columns, rows, [&](std::size_t index, Position at) {
        const float radius = at.x * at.x + at.y * at.y;
        const float shape = bowl * radius / (1.0F + 0.5F * radius) + tiltX * at.x + tiltY * at.y +
                            twist * at.x * at.y + ripple * at.x * (at.x * at.x - 0.6F);
        table[index] = level + shape + noise.around(grain);
    });
    return table;
}

Straylight makeStraylight(const CalibrationOptions& options, Noise& noise) {
    Straylight straylight;
    straylight.scale = 0.002F * (1.0F + noise.around(0.1F));
    // Distances wrap around, so nothing lies farther from element 0 than half the diagonal.
    const float width = 0.5F * static_cast<float>(options.columns);
    const float height = 0.5F * static_cast<float>(options.rows);
    const float reach = 0.9F * std::sqrt(width * width + height * height);
    const float depth = 9.0F * (1.0F + noise.around(0.1F));
    const auto points = static_cast<float>(straylight.radius.size());
    for (std::size_t i = 0; i < straylight.radius.size(); ++i) {
        const float t = static_cast<float>(i + 1) / points;
        straylight.radius[i] = reach * t * t;
        straylight.value[i] = depth * t * (1.4F - 0.4F * t) + noise.around(0.05F);
    }
    straylight.exponent = options.straylightExponent;
    straylight.offset = 1.0e-7F;
    straylight.centre = 0.97F + noise.around(0.01F);
    straylight.psfWidth = options.columns;
    straylight.psfHeight = options.rows;
    return straylight;
}

Wiggling makeWiggling(std::size_t entries, float period, float amplitude, Noise& noise) {
    Wiggling wiggling;
    wiggling.header = period;
    for (std::size_t i = 0; i < entries; ++i) {
        const auto harmonic = static_cast<float>(i + 1);
        wiggling.third.push_back(amplitude / (harmonic * harmonic) * (1.0F + noise.around(0.2F)));
        wiggling.first.push_back(noise.around(3.0F));
        wiggling.second.push_back(harmonic);
    }
    return wiggling;
}

// Modulation frequencies in hertz, as far as they are asked for.
constexpr std::array<std::uint32_t, VANTRIC_FREQUENCIES> frequencyIds = {
    80'000'000, 60'000'000,  100'000'000, 20'000'000,
    40'000'000, 120'000'000, 50'000'000,  15'000'000};
constexpr float halfSpeedOfLight = 1.49896e8F;

Frequency makeFrequency(std::size_t index, std::size_t wigglingEntries,
                        const CalibrationOptions& options, Noise& noise) {
    Frequency frequency;
    frequency.id = frequencyIds[index];
    const float range = halfSpeedOfLight / static_cast<float>(frequency.id);
    frequency.pixelTable = makeTable(options.columns, options.rows, 0.1F + noise.around(0.02F),
                                     0.02F * range, 0.0004F * range, noise);
    frequency.valuesA = {0.05F + noise.around(0.01F), 1.0e-3F + noise.around(2.0e-4F),
                         -1.0e-5F + noise.around(2.0e-6F), noise.around(1.0e-8F)};
    frequency.valuesB = {1.0F + noise.around(0.02F), -2.0e-3F + noise.around(2.0e-4F),
                         noise.around(1.0e-5F), noise.around(1.0e-8F)};
    // Modules without this value exist, so one frequency in three goes without.
    if (index % 3 != 2) {
        frequency.scalar = 25.0F + noise.around(5.0F);
    }
    frequency.wigglingA = makeWiggling(wigglingEntries, range, 0.004F * range, noise);
    frequency.wigglingB = makeWiggling(wigglingEntries, range, 0.001F * range, noise);
    return frequency;
}

std::string digits(std::uint32_t value, std::size_t width) {
    std::string text = std::to_string(value);
    return std::string(width > text.size() ? width - text.size() : 0, '0') + text;
}

void checkOptions(const CalibrationOptions& options) {
    if (std::size_t{options.columns} * options.rows < smallestSensor) {
        throw std::invalid_argument(
            "a sensor needs at least 4 pixels: the wiggling tables of a smaller one cannot be "
            "read back");
    }
    if (options.frequencies < 1 || options.frequencies > VANTRIC_FREQUENCIES) {
        throw std::invalid_argument("a calibration has 1 to 8 frequencies");
    }
    if (options.custom > VANTRIC_CUSTOM_FIELDS) {
        throw std::invalid_argument("a calibration has at most 5 custom blocks");
    }
}

}  // namespace

Calibration makeCalibration(const CalibrationOptions& options) {
    checkOptions(options);
    Noise noise(options.seed);
    const std::size_t pixels = std::size_t{options.columns} * options.rows;
    const std::size_t workBytes = pixels * sizeof(float);
    const std::size_t wigglingEntries =
        std::min<std::size_t>(VANTRIC_WIGGLING_ENTRIES, (pixels - 1) / 3);

    Calibration calibration;
    calibration.columns = options.columns;
    calibration.rows = options.rows;
    calibration.lens = makeLens(options.columns, options.rows, noise);
    calibration.mask = makeMask(options.columns, options.rows, noise);
    calibration.pixelValues =
        makeTable(options.columns, options.rows, noise.around(0.01F), 0.05F, 0.001F, noise);

    const std::uint32_t month = 1 + noise.below(12);
    const std::uint32_t day = 1 + noise.below(28);
    calibration.date = 20260000 + 100 * month + day;
    const std::string model =
        "depth module " + std::to_string(options.columns) + "x" + std::to_string(options.rows);
    const std::string serial = "SN" + digits(noise.below(100'000'000), 8);
    if (model.size() <= workBytes) {
        calibration.text1 = model;
    }
    if (serial.size() <= workBytes) {
        calibration.text2 = serial;
    }
    calibration.idBytes.emplace(16);
    std::generate(calibration.idBytes->begin(), calibration.idBytes->end(),
                  [&] { return noise.byte(); });
    // 0xFFFF would mean that the code is unset.
    calibration.idCodes = {static_cast<std::uint16_t>(noise.below(0xFFFF)),
                           static_cast<std::uint16_t>(noise.below(0xFFFF))};
    if (options.straylight && straylightBytes <= workBytes) {
        calibration.straylight = makeStraylight(options, noise);
    }
    for (std::size_t i = 0; i < options.frequencies; ++i) {
        calibration.frequencies.push_back(makeFrequency(i, wigglingEntries, options, noise));
    }
    for (std::size_t i = 0; i < options.custom; ++i) {
        std::vector<std::uint8_t> content(customBlockBytes + i);
        std::generate(content.begin(), content.end(), [&] { return noise.byte(); });
        calibration.custom.push_back(std::move(content));
    }
    return calibration;
}

}  // namespace calcut::writer
