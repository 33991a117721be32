#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <numeric>
#include <random>

#include "calcut/vantric.h"
#include "calcut/vantric_rx.h"
#include "calibration/directions.h"
#include "calibration/packed/Compressed.h"
#include "calibration/processor.h"
#include "cutter/CRC32.h"
#include "cutter/CRC32Kernels.h"
#include "keep.h"
#include "plain/plain.h"
#include "work.h"
#include "writer/writer.h"

namespace calcut::bench {

namespace {

constexpr std::uint32_t columns = 224;
constexpr std::uint32_t rows = 172;
constexpr std::uint32_t pixels = columns * rows;
constexpr std::size_t crcBytes = 64 * 1024;
constexpr std::size_t crcBytesOfDump = 231 * 1024;

// Inputs and outputs, kept for the whole run.
struct Data {
    writer::Calibration calibration = writer::makeCalibration({});
    std::vector<float> lens{calibration.lens.begin(), calibration.lens.end()};
    VantricImagerArea area{0, 0, columns, rows};
    std::vector<float> floats = std::vector<float>(std::size_t{pixels} * 3);
    std::vector<std::uint32_t> integers = std::vector<std::uint32_t>(pixels);
    std::vector<std::uint32_t> scratch = std::vector<std::uint32_t>(std::size_t{pixels} * 2);
    std::vector<std::uint32_t> words = std::vector<std::uint32_t>(pixels);
    std::vector<std::uint8_t> bytes = std::vector<std::uint8_t>(crcBytes);
    std::vector<std::uint8_t> dump = std::vector<std::uint8_t>(crcBytesOfDump);
    std::vector<std::uint8_t> lowBytes = std::vector<std::uint8_t>(pixels);
    std::vector<std::uint8_t> rxFloats;
    std::vector<float> profileX, profileY, at;

    Data() {
        std::mt19937 random(7);
        for (std::uint32_t& word : words) {
            word = static_cast<std::uint32_t>(random());
        }
        for (std::uint8_t& byte : dump) {
            byte = static_cast<std::uint8_t>(random());
        }
        std::copy_n(dump.begin(), bytes.size(), bytes.begin());
        for (const float value : calibration.pixelValues) {
            const std::uint32_t word = writer::encodeRXFloat(value);
            for (unsigned shift = 32; shift > 0; shift -= 8) {
                rxFloats.push_back(static_cast<std::uint8_t>(word >> (shift - 8)));
            }
        }
        const writer::Straylight& profile = *calibration.straylight;
        profileX = {0.0F};
        profileY = {0.0F};
        profileX.insert(profileX.end(), profile.radius.begin(), profile.radius.end());
        profileY.insert(profileY.end(), profile.value.begin(), profile.value.end());
        for (std::uint32_t i = 0; i < pixels; ++i) {
            at.push_back(profileX.back() * static_cast<float>(i) / static_cast<float>(pixels));
        }
    }
};

Data& data() {
    static Data instance;
    return instance;
}

// The least ratio to the plain form, which depends on the variant that the library chooses.
double wanted(double withAvx2, double without) {
    return vantric::hasAvx2() ? withAvx2 : without;
}

// What every processor can, beside the library's own choice for this one.
Work portableDirections() {
    Data& d = data();
    return {"directions 224 x 172, portable",
            [&] {
                plain::updateDirections(d.floats.data(), d.lens.data(), columns, rows);
                clobberMemory();
            },
            [&] {
                vantric::computeDirectionsPortable(d.floats.data(), d.lens.data(), columns, rows);
                clobberMemory();
            },
            16.0};
}

Work directions() {
    Data& d = data();
    return {"directions 224 x 172",
            [&] {
                plain::updateDirections(d.floats.data(), d.lens.data(), columns, rows);
                clobberMemory();
            },
            [&] {
                vantric_updateDirections(d.floats.data(), pixels * 3, d.lens.data(), &d.area);
                clobberMemory();
            },
            wanted(28.0, 16.0),
            "OpenCV undistortPoints",
            opencvUndistortPoints(d.lens, columns, rows),
            20.0,
            [&] {
                std::memset(d.floats.data(), 1, d.floats.size() * sizeof(float));
                clobberMemory();
            }};
}

VantricCalibration straylightRecord(float exponent) {
    const writer::Straylight& profile = *data().calibration.straylight;
    VantricCalibration record = {};
    record.straylightScale = profile.scale;
    std::memcpy(record.straylightRadius, profile.radius.data(), sizeof profile.radius);
    std::memcpy(record.straylightValue, profile.value.data(), sizeof profile.value);
    record.straylightExponent = exponent;
    record.straylightOffset = profile.offset;
    record.straylightCentre = profile.centre;
    record.straylightPointCount = VANTRIC_STRAYLIGHT_POINTS;
    record.psfWidth = columns;
    record.psfHeight = rows;
    return record;
}

Work psf(const char* name, float exponent) {
    const VantricCalibration record = straylightRecord(exponent);
    return {name,
            [=] {
                VantricCalibration copy = record;
                plain::allocateAndCalculatePsf(copy);
                keep(copy.psf);
                std::free(copy.psf);
            },
            [=] {
                VantricCalibration copy = record;
                vantric_allocateAndCalculatePsf(&copy);
                keep(copy.psf);
                std::free(copy.psf);
            },
            16.0,
            {},
            {},
            0.0,
            [] {
                void* memory = std::malloc(pixels * sizeof(float));
                keep(memory);
                std::memset(memory, 1, pixels * sizeof(float));
                clobberMemory();
                std::free(memory);
            }};
}

Work interpolation() {
    Data& d = data();
    const auto n = static_cast<std::uint32_t>(d.profileX.size());
    return {"interpolation, 38528 points",
            [&, n] {
                VantricPoly* poly = plain::createPoly(d.profileX.data(), d.profileY.data(), n);
                for (std::size_t i = 0; i < pixels; ++i) {
                    d.floats[i] = plain::interpolate(*poly, d.at[i], 0.0F);
                }
                clobberMemory();
                vantric_freePoly(poly);
            },
            [&, n] {
                VantricPoly* poly =
                    vantric_createPolyHandle(d.profileX.data(), d.profileY.data(), n);
                for (std::size_t i = 0; i < pixels; ++i) {
                    d.floats[i] = vantric_cinterpol_def(poly, d.at[i], 0.0F);
                }
                clobberMemory();
                vantric_freePoly(poly);
            },
            0.0,
            "Boost pchip",
            boostPchip(d.profileX, d.profileY, d.at, d.floats),
            0.0,
            [&] {
                std::memcpy(d.floats.data(), d.at.data(), pixels * sizeof(float));
                clobberMemory();
            }};
}

// Reads bytes and writes a value for each pixel.
void touch(std::size_t read) {
    Data& d = data();
    std::memcpy(d.floats.data(), d.words.data(), read);
    std::memset(reinterpret_cast<char*>(d.floats.data()) + read, 1, pixels * sizeof(float) - read);
    clobberMemory();
}

Work unpackUint(std::uint8_t bits) {
    Data& d = data();
    const std::uint64_t words = vantric_getRXPackedSize(pixels, bits) / 4;
    return {"unpackRXUint, " + std::to_string(bits) + (bits == 1 ? " bit" : " bits"),
            [&d, words, bits] {
                plain::unpackUint(d.words.data(), words, pixels, bits, d.integers.data());
                clobberMemory();
            },
            [&d, words, bits] {
                vantric_unpackRXUint(d.words.data(), words, pixels, bits, d.integers.data());
                clobberMemory();
            },
            wanted(bits == 1 ? 6.0 : 8.0, 4.0),
            {},
            {},
            0.0,
            [words] { touch(words * 4); }};
}

Work unpackFloat() {
    Data& d = data();
    const std::uint8_t bits = 12;
    const std::uint64_t words = vantric_getRXPackedSize(pixels, bits) / 4;
    return {"unpackRXFloat, 12 bits",
            [&, words] {
                plain::unpackFloat(d.words.data(), words, pixels, bits, d.integers.data(),
                                   d.floats.data(), 0.5F, 1.0F);
                clobberMemory();
            },
            [&, words] {
                vantric_unpackRXFloat(d.words.data(), words, pixels, bits, d.integers.data(),
                                      d.floats.data(), 0.5F, 1.0F);
                clobberMemory();
            },
            wanted(6.0, 4.0),
            {},
            {},
            0.0,
            [&d, words] {
                touch(words * 4);
                std::memset(d.integers.data(), 1, pixels * sizeof(std::uint32_t));
                clobberMemory();
            }};
}

// Decodes a block of values for the pixels with the plain form and with the library.
Work blockWork(const char* name, const RXBlockHeader& block, const std::uint8_t* payload,
               double target) {
    Data& d = data();
    const std::size_t size = vantric_getRXPackedBlockSize(&block);
    const auto decode = [&d, block, payload, size](const auto& decodeBlock) {
        VantricStream stream = vantric_createStreamFromData(payload, size);
        decodeBlock(stream, block, reinterpret_cast<std::uint8_t*>(d.scratch.data()),
                    d.scratch.size() * sizeof(std::uint32_t),
                    reinterpret_cast<std::uint8_t*>(d.floats.data()), pixels * sizeof(float));
        clobberMemory();
    };
    const auto fast = [](VantricStream& stream, const RXBlockHeader& header, auto... buffers) {
        vantric_decodeRXBlock(&stream, &header, buffers...);
    };
    return {.name = name,
            .plain = [=] { decode(plain::decodeBlock); },
            .fast = [=] { decode(fast); },
            .target = target,
            .bound = [size] { touch(size); }};
}

Work packedBlock() {
    const RXBlockHeader block = {0, RX_KIND_PACKED_FLOAT, pixels, 12, 0.5F, 1.0F};
    return blockWork("packed block, 12-bit floats", block,
                     reinterpret_cast<const std::uint8_t*>(data().words.data()), wanted(12.0, 4.0));
}

Work floatBlock() {
    const RXBlockHeader block = {0, RX_KIND_FLOAT, pixels, 0, 0, 0};
    return blockWork("float block, 38528 values", block, data().rxFloats.data(), wanted(20.0, 5.0));
}

Work maskBytes() {
    Data& d = data();
    const std::uint64_t words = vantric_getRXPackedSize(pixels, 1) / 4;
    return {"mask bits to bytes",
            [&, words] {
                plain::unpackUint(d.words.data(), words, pixels, 1, d.integers.data());
                for (std::size_t i = 0; i < pixels; ++i) {
                    d.lowBytes[i] = static_cast<std::uint8_t>(d.integers[i]);
                }
                clobberMemory();
            },
            [&, words] {
                vantric::decodePackedLowBytes(reinterpret_cast<const std::uint8_t*>(d.words.data()),
                                              words, pixels, 1, d.lowBytes.data());
                clobberMemory();
            },
            wanted(50.0, 8.0),
            {},
            {},
            0.0,
            [&, words] {
                std::memcpy(d.lowBytes.data(), d.words.data(), words * 4);
                std::memset(d.lowBytes.data(), 1, d.lowBytes.size());
                clobberMemory();
            }};
}

Work checksumOf(const char* name, std::vector<std::uint8_t>& bytes) {
    const bool byInstructions = checksum::hasInstructions();
    return {name,
            [&] { keep(plain::crc32(bytes.data(), bytes.size())); },
            [&] { keep(calc_crc32(bytes.data(), bytes.size())); },
            byInstructions ? 30.0 : 6.0,
            "zlib crc32",
            zlibCrc32(bytes),
            byInstructions ? 2.0 : 0.0,
            [&] { keep(std::accumulate(bytes.begin(), bytes.end(), std::uint32_t{0})); }};
}

Work portableChecksum() {
    const std::vector<std::uint8_t>& bytes = data().bytes;
    return {"calc_crc32, 64 KiB, portable", [&] { keep(plain::crc32(bytes.data(), bytes.size())); },
            [&] { keep(checksum::sideBySide(~0U, bytes.data(), bytes.size())); }, 6.0};
}

}  // namespace

std::string chosenKernels() {
    return std::string("directions ") + (vantric::hasAvx2() ? "by AVX2" : "portable") +
           ", checksum " + (checksum::hasInstructions() ? "by instructions" : "portable");
}

std::vector<Work> kernelWork() {
    std::vector<Work> work = {directions()};
    if (vantric::hasAvx2()) {
        work.push_back(portableDirections());
    }
    work.insert(work.end(), {psf("PSF 224 x 172, exponent 2.0", 2.0F),
                             psf("PSF 224 x 172, exponent 2.1", 2.1F), interpolation()});
    for (const std::uint8_t bits : std::initializer_list<std::uint8_t>{1, 8, 12, 13}) {
        work.push_back(unpackUint(bits));
    }
    work.push_back(unpackFloat());
    work.push_back(packedBlock());
    work.push_back(floatBlock());
    work.push_back(maskBytes());
    work.push_back(checksumOf("calc_crc32, 64 KiB", data().bytes));
    work.push_back(checksumOf("calc_crc32, 231 KiB", data().dump));
    work.push_back(portableChecksum());
    return work;
}

}  // namespace calcut::bench
