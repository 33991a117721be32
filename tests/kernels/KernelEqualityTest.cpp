// Every fast kernel against its plain form, bit for bit. Any NaN equals any NaN: which payload an
// operation hands on depends on the machine and on the order of its operands.
#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <limits>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <unistd.h>

#include "calcut/cutter.h"
#include "calcut/vantric.h"
#include "calcut/vantric_rx.h"
#include "cutter/CRC32.h"
#include "plain/plain.h"
#include "writer/writer.h"

namespace plain = calcut::plain;
namespace writer = calcut::writer;

namespace {

using Floats = std::vector<float>;
using Words = std::vector<std::uint32_t>;
using Bytes = std::vector<std::uint8_t>;

constexpr float inf = std::numeric_limits<float>::infinity();
constexpr float nan = std::numeric_limits<float>::quiet_NaN();
constexpr float untouched = -12345.0F;
constexpr std::uint32_t untouchedWord = 0xDEADBEEFU;

std::uint32_t bitsOf(float value) {
    return std::isnan(value) ? 0x7FC00000U : std::bit_cast<std::uint32_t>(value);
}

// Index of the first element that differs, or -1.
std::ptrdiff_t firstDifference(const float* a, const float* b, std::size_t count) {
    const auto* end = a + count;
    const auto* found =
        std::mismatch(a, end, b, [](float x, float y) { return bitsOf(x) == bitsOf(y); }).first;
    return found == end ? -1 : found - a;
}

class Random {
  public:
    std::uint32_t word() { return static_cast<std::uint32_t>(generator_()); }
    // [low, high), the same on every machine.
    float between(float low, float high) {
        return low + (high - low) * (static_cast<float>(word() >> 8) * 0x1p-24F);
    }

  private:
    std::mt19937 generator_{20240229};
};

std::uint64_t hashOf(const void* data, std::size_t size, std::uint64_t hash) {
    const auto* bytes = static_cast<const std::uint8_t*>(data);
    for (std::size_t i = 0; i < size; ++i) {
        hash = (hash ^ bytes[i]) * 0x100000001B3ULL;
    }
    return hash;
}
constexpr std::uint64_t emptyHash = 0xCBF29CE484222325ULL;

std::uint64_t hashOf(const float* values, std::size_t count, std::uint64_t hash) {
    for (std::size_t i = 0; i < count; ++i) {
        const std::uint32_t bits = bitsOf(values[i]);
        hash = hashOf(&bits, sizeof bits, hash);
    }
    return hash;
}

// ------------------------------------------------------------------------------- directions --

struct Size {
    std::uint32_t columns, rows;
};

Floats fastDirections(const Floats& lens, const Size& size) {
    const VantricImagerArea area = {0, 0, size.columns, size.rows};
    const std::uint32_t count = size.columns * size.rows * 3;
    Floats result(count + 8, untouched);
    EXPECT_EQ(vantric_updateDirections(result.data(), count, lens.data(), &area), VANTRIC_OK);
    EXPECT_TRUE(std::all_of(result.begin() + count, result.end(),
                            [](float value) { return value == untouched; }));
    result.resize(count);
    return result;
}

void expectDirectionsAsPlain(const Floats& lens, const Size& size) {
    const Floats fast = fastDirections(lens, size);
    Floats expected(fast.size());
    plain::updateDirections(expected.data(), lens.data(), size.columns, size.rows);
    EXPECT_EQ(firstDifference(fast.data(), expected.data(), fast.size()), -1)
        << size.columns << " x " << size.rows << ", lens " << testing::PrintToString(lens);
}

// fx, fy, cx, cy, k1, k2, p1, p2, k3
const std::vector<Floats>& lenses() {
    static const std::vector<Floats> all = [] {
        std::vector<Floats> result = {
            {160, 161, 15.5F, 9.25F, 0, 0, 0, 0, 0},
            {160, 161, 15.5F, 9.25F, -0.2F, 0.05F, 4e-4F, -3e-4F, -0.004F},
            {20, 20, 16, 8, -0.9F, 0.6F, 0.05F, 0.07F, -0.3F},  // some rays never come to rest
            {1, 1, 0, 0, 1e10F, -1e20F, 1e10F, 1e10F, 1e30F},   // infinities and NaN on the way
            {1e-30F, 1e-30F, 3, 3, 1, 1, 1, 1, 1},              // overflow at once
            {0, 0, 4, 4, -0.2F, 0.05F, 0, 0, 0},                // 1 / 0
            {-50, 70, 1e6F, -1e6F, 0.1F, 0, 0, 0, 0},
            {inf, 160, 16, 8, 0.1F, 0.1F, 0.1F, 0.1F, 0.1F},
            {160, 160, 16, 8, inf, -inf, 0, 0, 1},
            {160, 160, nan, 8, 0.1F, 0, 0, 0, 0},
            {160, 160, 16, 8, 0, 0, nan, 0, 0},
            {3e38F, 3e38F, 16, 8, 1e-45F, 1e-40F, 1e-40F, 1e-45F, 1e-42F}};  // subnormal numbers
        Random random;
        for (int i = 0; i < 40; ++i) {
            const float strength = std::exp2(random.between(-6.0F, 3.0F));
            Floats lens = {random.between(5, 400), random.between(5, 400), random.between(-5, 60),
                           random.between(-5, 40)};
            for (int k = 0; k < 5; ++k) {
                lens.push_back(random.between(-strength, strength) * (k == 2 || k == 3 ? 0.1F : 1));
            }
            result.push_back(lens);
        }
        return result;
    }();
    return all;
}

TEST(KernelEquality, DirectionsOfEveryShapeAroundTheTileSize) {
    const Floats lens = lenses()[1];
    for (std::uint32_t columns = 1; columns <= 35; ++columns) {
        for (std::uint32_t rows = 1; rows <= 9; ++rows) {
            expectDirectionsAsPlain(lens, {columns, rows});
        }
    }
    for (const Size size : {Size{1, 300}, Size{300, 1}, Size{224, 172}, Size{1001, 3}}) {
        expectDirectionsAsPlain(lens, size);
    }
}

TEST(KernelEquality, DirectionsOfEveryLens) {
    for (const Floats& lens : lenses()) {
        for (const Size size : {Size{1, 1}, Size{33, 18}, Size{1, 9}, Size{50, 1}}) {
            expectDirectionsAsPlain(lens, size);
        }
    }
}

// ------------------------------------------------------------------- interpolation and PSF --

VantricCalibration straylightRecord(const Floats& radius, const Floats& value, const Size& size,
                                    float exponent, float offset) {
    VantricCalibration record = {};
    record.straylightScale = 0.75F;
    std::copy(radius.begin(), radius.end(), record.straylightRadius);
    std::copy(value.begin(), value.end(), record.straylightValue);
    record.straylightExponent = exponent;
    record.straylightOffset = offset;
    record.straylightCentre = 0.97F;
    record.straylightPointCount = static_cast<std::uint8_t>(radius.size());
    record.psfWidth = size.columns;
    record.psfHeight = size.rows;
    return record;
}

using OwnedFloats = std::unique_ptr<float, decltype(&std::free)>;

OwnedFloats fastPsf(VantricCalibration record) {
    EXPECT_EQ(vantric_allocateAndCalculatePsf(&record), VANTRIC_OK);
    return {record.psf, &std::free};
}

struct Profile {
    Floats radius, value;
};

std::vector<Profile> profiles() {
    std::vector<Profile> all = {{{3}, {2}},
                                {{2, 9}, {1, 1}},                        // flat
                                {{2.5F, 4, 8, 16}, {0.5F, 2, 1.5F, 7}},  // an extremum inside
                                {{4, 3, 9}, {1, 2, 3}},                  // not ascending
                                {{4, 4, 9}, {1, 2, 3}},                  // no width
                                {{2, nan, 9}, {1, 2, 3}},
                                {{1, 2, inf}, {1, 2, -3}}};
    Random random;
    for (int i = 0; i < 4; ++i) {
        Profile profile;
        for (int k = 0; k < VANTRIC_STRAYLIGHT_POINTS; ++k) {
            const float last = k == 0 ? 0 : profile.radius.back();
            profile.radius.push_back(last + random.between(0.1F, 4));
            profile.value.push_back(random.between(-1, 6));
        }
        all.push_back(profile);
    }
    return all;
}

TEST(KernelEquality, PsfOfEverySizeProfileAndExponent) {
    const std::vector<Size> sizes = {{0, 0},  {0, 5},   {5, 0},  {1, 1},  {1, 2},  {2, 1},
                                     {2, 2},  {3, 3},   {4, 4},  {5, 8},  {8, 5},  {1, 17},
                                     {17, 1}, {33, 20}, {7, 12}, {12, 7}, {31, 31}};
    for (const Profile& profile : profiles()) {
        for (const Size& size : sizes) {
            for (const float exponent : {2.0F, 2.1F, 0.5F, -1.5F, 0.0F, inf, nan}) {
                for (const float offset : {0.0F, 1e-3F}) {
                    const VantricCalibration record =
                        straylightRecord(profile.radius, profile.value, size, exponent, offset);
                    VantricCalibration expected = record;
                    plain::allocateAndCalculatePsf(expected);
                    const OwnedFloats owned(expected.psf, &std::free);
                    const OwnedFloats fast = fastPsf(record);
                    const std::size_t elements =
                        std::max<std::size_t>(std::size_t{size.columns} * size.rows, 1);
                    ASSERT_EQ(firstDifference(fast.get(), expected.psf, elements), -1)
                        << size.columns << " x " << size.rows << ", exponent " << exponent;
                }
            }
        }
    }
}

TEST(KernelEquality, InterpolationInsideAtAndOutsideTheNodes) {
    const auto release = [](VantricPoly* poly) { vantric_freePoly(poly); };
    Random random;
    for (const Profile& profile : profiles()) {
        const auto n = static_cast<std::uint32_t>(profile.radius.size());
        if (n < 2) {
            continue;
        }
        using Owned = std::unique_ptr<VantricPoly, decltype(release)>;
        const Owned fast(vantric_createPolyHandle(profile.radius.data(), profile.value.data(), n),
                         release);
        const Owned expected(plain::createPoly(profile.radius.data(), profile.value.data(), n),
                             release);
        ASSERT_EQ(firstDifference(fast->slope, expected->slope, n), -1);
        Floats at = profile.radius;
        at.insert(at.end(), {-1, 0, 1e6F, inf, -inf, nan});
        for (int i = 0; i < 500; ++i) {
            at.push_back(random.between(0, 60));
        }
        for (const float t : at) {
            ASSERT_EQ(bitsOf(vantric_cinterpol_def(fast.get(), t, 7)),
                      bitsOf(plain::interpolate(*expected, t, 7)))
                << t;
            ASSERT_EQ(bitsOf(vantric_cinterpol(fast.get(), t)),
                      bitsOf(plain::interpolate(*expected, t, nan)));
        }
    }
}

// --------------------------------------------------------------------------------- unpacking --

std::vector<std::uint64_t> valueCounts() {
    std::vector<std::uint64_t> counts(71);
    for (std::size_t i = 0; i < counts.size(); ++i) {
        counts[i] = i;
    }
    // Around the sizes of the groups in which values are unpacked, and odd ones beyond.
    counts.insert(counts.end(), {95, 96, 97, 127, 128, 129, 255, 257, 1023, 1024, 1025, 2047, 2048,
                                 2049, 3000, 4099});
    return counts;
}

TEST(KernelEquality, UnpackingOfEveryWidthAndCountWithTooFewJustEnoughAndMoreWords) {
    Random random;
    Words words(4200);
    std::generate(words.begin(), words.end(), [&] { return random.word(); });
    for (unsigned bits = 1; bits <= 31; ++bits) {
        for (const std::uint64_t count : valueCounts()) {
            const std::uint64_t needed = (count * bits + 31) / 32;
            for (const std::uint64_t wordCount :
                 {needed, needed + 1, needed - std::min<std::uint64_t>(needed, 1), needed / 2}) {
                // Copied, so that a word read behind the end is seen by the address sanitizer.
                const Words exact(words.begin(),
                                  words.begin() + static_cast<std::ptrdiff_t>(wordCount));
                Words fast(count + 4, untouchedWord);
                Words expected = fast;
                const auto width = static_cast<std::uint8_t>(bits);
                const std::uint32_t status =
                    vantric_unpackRXUint(exact.data(), wordCount, count, width, fast.data());
                ASSERT_EQ(status,
                          plain::unpackUint(exact.data(), wordCount, count, bits, expected.data()));
                ASSERT_EQ(fast, expected) << bits << " bits, " << count << " values";

                std::fill(fast.begin(), fast.end(), untouchedWord);
                expected = fast;
                Floats fastFloats(count + 4, untouched);
                Floats expectedFloats = fastFloats;
                ASSERT_EQ(vantric_unpackRXFloat(exact.data(), wordCount, count, width, fast.data(),
                                                fastFloats.data(), 0.37F, -3.1F),
                          plain::unpackFloat(exact.data(), wordCount, count, bits, expected.data(),
                                             expectedFloats.data(), 0.37F, -3.1F));
                ASSERT_EQ(fast, expected) << bits << " bits, " << count << " values";
                ASSERT_EQ(
                    firstDifference(fastFloats.data(), expectedFloats.data(), fastFloats.size()),
                    -1)
                    << bits << " bits, " << count << " values";
            }
        }
    }
}

// Blocks at any alignment of the payload and the destination.
TEST(KernelEquality, BlocksOfEveryKindWidthAndAlignment) {
    Random random;
    Bytes source(20000);
    std::generate(source.begin(), source.end(),
                  [&] { return static_cast<std::uint8_t>(random.word()); });
    for (std::uint32_t kind = RX_KIND_RAW; kind <= RX_KIND_PACKED_FLOAT; ++kind) {
        const bool packed = kind >= RX_KIND_PACKED_UINT;
        for (unsigned bits = packed ? 1 : 31; bits <= 31; ++bits) {
            for (const std::uint32_t count : {0U, 1U, 7U, 33U, 255U, 256U, 257U, 1025U, 2100U}) {
                const std::size_t shift = (count + bits) % 4;
                RXBlockHeader block = {};
                block.kind = kind;
                block.count = count;
                block.bits = static_cast<std::uint8_t>(bits);
                block.scale = 0.01F;
                block.offset = 5.5F;
                const std::uint64_t payload = vantric_getRXPackedBlockSize(&block);
                const Bytes exact(source.begin(),
                                  source.begin() + static_cast<std::ptrdiff_t>(shift + payload));
                VantricStream stream = vantric_createStreamFromData(exact.data(), exact.size());
                stream.position = shift;
                VantricStream plainStream = stream;
                Words scratch(2 * std::size_t{count} + 4);
                Words expected(count + 2, untouchedWord);
                Bytes fast(expected.size() * 4 + 4, 0);
                std::memcpy(fast.data() + shift, expected.data(), expected.size() * 4);
                auto* scratchBytes = reinterpret_cast<std::uint8_t*>(scratch.data());
                ASSERT_EQ(vantric_decodeRXBlock(&stream, &block, scratchBytes, scratch.size() * 4,
                                                fast.data() + shift, std::uint64_t{count} * 4),
                          plain::decodeBlock(plainStream, block, scratchBytes, scratch.size() * 4,
                                             reinterpret_cast<std::uint8_t*>(expected.data()),
                                             std::uint64_t{count} * 4));
                ASSERT_EQ(stream.position, plainStream.position);
                ASSERT_EQ(std::memcmp(fast.data() + shift, expected.data(), expected.size() * 4), 0)
                    << "kind " << kind << ", " << bits << " bits, " << count << " values";
            }
        }
    }
}

// ------------------------------------------------------------------------------------ floats --

// Words as a float block; dest gets what the library makes of them.
Floats decodeFloatBlock(const Words& words) {
    Bytes bytes;
    bytes.reserve(words.size() * 4);
    for (const std::uint32_t word : words) {
        for (unsigned shift = 32; shift > 0; shift -= 8) {
            bytes.push_back(static_cast<std::uint8_t>(word >> (shift - 8)));
        }
    }
    RXBlockHeader block = {};
    block.kind = RX_KIND_FLOAT;
    block.count = static_cast<std::uint32_t>(words.size());
    Floats values(words.size());
    VantricStream stream = vantric_createStreamFromData(bytes.data(), bytes.size());
    EXPECT_EQ(vantric_decodeRXBlock(&stream, &block, nullptr, 0,
                                    reinterpret_cast<std::uint8_t*>(values.data()), bytes.size()),
              VANTRIC_OK);
    return values;
}

// The first word for which one of the library's two ways differs from the plain form, or -1.
std::int64_t firstWrongWord(const Words& words) {
    const Floats block = decodeFloatBlock(words);
    for (std::size_t i = 0; i < words.size(); ++i) {
        const auto word = static_cast<std::int32_t>(words[i]);
        const std::uint32_t expected = bitsOf(plain::decodeFloat(word));
        if (bitsOf(block[i]) != expected || bitsOf(vantric_decodeRXFloat(word)) != expected) {
            return words[i];
        }
    }
    return -1;
}

Words floatWords() {
    Words mantissas = {0,        1,        2,        3,        0x3FFFFF, 0x400000,
                       0x400001, 0x555555, 0x7FFFFD, 0x7FFFFE, 0x7FFFFF};
    Random random;
    for (int i = 0; i < 20; ++i) {
        mantissas.push_back(random.word() & 0x7FFFFFU);
    }
    Words words;
    for (std::uint32_t exponent = 0; exponent < 256; ++exponent) {
        for (const std::uint32_t mantissa : mantissas) {
            const std::uint32_t magnitude = exponent << 23 | mantissa;
            words.push_back(magnitude);
            words.push_back(0U - magnitude);
        }
    }
    words.push_back(0x80000000U);
    words.push_back(0x80000001U);
    return words;
}

TEST(KernelEquality, FloatsOfEveryExponent) {
    const Words words = floatWords();
    EXPECT_EQ(firstWrongWord(words), -1);
    // Each alone, so that no neighbour decides by which rule it is decoded.
    for (const std::uint32_t word : words) {
        ASSERT_EQ(firstWrongWord({word}), -1);
    }
}

TEST(KernelEquality, FloatBlocksWithOneUnusualWordAtEachPlace) {
    const Words usual(600, 0x40123456);
    for (const std::uint32_t word : {0x00000001U, 0x00FFFFFFU, 0x80000000U, 0xFF800000U}) {
        for (std::size_t at = 0; at < usual.size(); ++at) {
            Words words = usual;
            words[at] = word;
            ASSERT_EQ(firstWrongWord(words), -1) << at;
        }
    }
}

// Minutes long: --gtest_also_run_disabled_tests --gtest_filter=*EveryWord*
TEST(KernelEquality, DISABLED_FloatsOfEveryWord) {
    Words words(1U << 16);
    for (std::uint64_t first = 0; first < 1ULL << 32; first += words.size()) {
        for (std::size_t i = 0; i < words.size(); ++i) {
            words[i] = static_cast<std::uint32_t>(first + i);
        }
        ASSERT_EQ(firstWrongWord(words), -1);
    }
}

// ---------------------------------------------------------------------------------- checksum --

TEST(KernelEquality, ChecksumOfEveryLengthAndStart) {
    Random random;
    Bytes data(300000);
    std::generate(data.begin(), data.end(),
                  [&] { return static_cast<std::uint8_t>(random.word()); });
    for (std::size_t length = 0; length <= 2100; ++length) {
        const std::size_t start = length % 9;
        ASSERT_EQ(calc_crc32(data.data() + start, length),
                  plain::crc32(data.data() + start, length))
            << length;
    }
    for (const std::size_t length : {4095, 4096, 4097, 65535, 65536, 65537, 100003, 299990}) {
        for (std::size_t start = 0; start < 9; ++start) {
            ASSERT_EQ(calc_crc32(data.data() + start, length),
                      plain::crc32(data.data() + start, length))
                << length;
        }
    }
}

TEST(KernelEquality, ChecksumsThatOthersPublished) {
    const struct {
        std::string text;
        std::uint32_t checksum;
    } cases[] = {{"", 0},
                 {"a", 0xE8B7BE43U},
                 {"abc", 0x352441C2U},
                 {"123456789", 0xCBF43926U},
                 {"The quick brown fox jumps over the lazy dog", 0x414FA339U},
                 {std::string(32, '\0'), 0x190A55ADU},
                 {std::string(32, '\xFF'), 0xFF6CAB0BU}};
    for (const auto& c : cases) {
        Bytes bytes(c.text.begin(), c.text.end());
        EXPECT_EQ(calc_crc32(bytes.data(), bytes.size()), c.checksum) << c.text;
        EXPECT_EQ(plain::crc32(bytes.data(), bytes.size()), c.checksum) << c.text;
    }
}

// ------------------------------------------------------------------------------ whole inputs --

struct Release {
    void operator()(VantricCalibration* record) const { vantric_freeCalibration(record); }
};
using Record = std::unique_ptr<VantricCalibration, Release>;

void expectSameRecord(const VantricCalibration& a, const VantricCalibration& b) {
    const std::size_t pixels = std::size_t{a.imagerArea.columns} * a.imagerArea.rows;
    ASSERT_EQ(std::memcmp(&a.imagerArea, &b.imagerArea, sizeof a.imagerArea), 0);
    ASSERT_EQ(std::memcmp(a.pixelMask, b.pixelMask, pixels), 0);
    ASSERT_EQ(firstDifference(a.pixelValues, b.pixelValues, pixels), -1);
    ASSERT_EQ(firstDifference(a.lensParameters, b.lensParameters, VANTRIC_LENS_PARAMETERS), -1);
    ASSERT_EQ(firstDifference(a.directions, b.directions, pixels * 3), -1);
    ASSERT_EQ(firstDifference(a.psf, b.psf, std::size_t{a.psfWidth} * a.psfHeight), -1);
    ASSERT_EQ(a.frequencyCount, b.frequencyCount);
    for (std::size_t k = 0; k < a.frequencyCount; ++k) {
        const VantricFrequencyRecord& x = a.frequencies[k];
        const VantricFrequencyRecord& y = b.frequencies[k];
        ASSERT_EQ(x.frequencyId, y.frequencyId);
        ASSERT_EQ(firstDifference(x.pixelTable, y.pixelTable, pixels), -1);
        ASSERT_EQ(firstDifference(x.valuesA, y.valuesA, VANTRIC_FREQUENCY_VALUES), -1);
        ASSERT_EQ(firstDifference(x.valuesB, y.valuesB, VANTRIC_FREQUENCY_VALUES), -1);
    }
    ASSERT_EQ(a.customFieldCount, b.customFieldCount);
}

TEST(KernelEquality, WholeCalibrations) {
    for (const bool large : {true, false}) {
        for (const unsigned valueBits : {0U, 7U, 12U, 31U}) {
            writer::CalibrationOptions options;
            options.columns = large ? 224 : 37;
            options.rows = large ? 172 : 11;
            options.straylightExponent = valueBits == 7 ? 2.1F : 2.0F;
            writer::PackOptions pack;
            pack.valueBits = valueBits;
            const Bytes data = writer::packCalibration(writer::makeCalibration(options), pack);
            VantricCalibration* fast = nullptr;
            VantricCalibration* expected = nullptr;
            ASSERT_EQ(vantric_readCalibration(data.data(), data.size(), &fast), VANTRIC_OK);
            const Record fastOwner(fast);
            ASSERT_EQ(plain::readCalibration(data.data(), data.size(), &expected), VANTRIC_OK);
            const Record expectedOwner(expected);
            expectSameRecord(*fast, *expected);
        }
    }
}

Bytes contentOf(const std::filesystem::path& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

TEST(KernelEquality, WholeCuts) {
    namespace fs = std::filesystem;
    const fs::path root = fs::path(testing::TempDir()) / ("kernels" + std::to_string(::getpid()));
    fs::create_directories(root / "fast");
    fs::create_directories(root / "plain");
    const Bytes dump = writer::makeV7Image(writer::packCalibration(writer::makeCalibration({})));
    const std::string dumpFile = root / "dump.bin";
    std::ofstream(dumpFile, std::ios::binary)
        .write(reinterpret_cast<const char*>(dump.data()),
               static_cast<std::streamsize>(dump.size()));
    EEPROMMetaInformation fast = {};
    EEPROMMetaInformation expected = {};
    EXPECT_EQ(cutEEPROMContent(CALCUT_LAYOUT_V7, dumpFile.c_str(), (root / "fast").c_str(), &fast),
              0);
    EXPECT_TRUE(plain::cutV7(dumpFile, root / "plain", expected));
    EXPECT_EQ(fast.zeroMaskCount, expected.zeroMaskCount);
    for (const char* name : {"qov.spc", "lensdata.dat"}) {
        EXPECT_EQ(contentOf(root / "fast" / name), contentOf(root / "plain" / name)) << name;
    }
    fs::remove_all(root);
}

// ------------------------------------------------------------------------- between machines --

// The same number on every machine: no result may depend on the instruction set.
TEST(KernelEquality, ResultsAreThoseOfEveryOtherMachine) {
    std::uint64_t hash = emptyHash;
    for (const Floats& lens : lenses()) {
        const Floats directions = fastDirections(lens, {45, 21});
        hash = hashOf(directions.data(), directions.size(), hash);
    }
    const Floats floats = decodeFloatBlock(floatWords());
    hash = hashOf(floats.data(), floats.size(), hash);
    Random random;
    Words words(1000);
    std::generate(words.begin(), words.end(), [&] { return random.word(); });
    for (unsigned bits = 1; bits <= 31; ++bits) {
        Words unpacked(1000);
        Floats converted(1000);
        ASSERT_EQ(vantric_unpackRXFloat(words.data(), words.size(), unpacked.size(),
                                        static_cast<std::uint8_t>(bits), unpacked.data(),
                                        converted.data(), 0.013F, -7.7F),
                  VANTRIC_OK);
        hash = hashOf(unpacked.data(), unpacked.size() * sizeof(std::uint32_t), hash);
        hash = hashOf(converted.data(), converted.size(), hash);
    }
    EXPECT_EQ(hash, 0x3B78A7BC7D788C2AULL);
}

// Apart from the rest, because here the mathematical library has a say.
TEST(KernelEquality, PsfIsThatOfEveryOtherMachine) {
    std::uint64_t hash = emptyHash;
    for (const Profile& profile : profiles()) {
        for (const float exponent : {2.0F, 2.1F, 0.5F, 1.0F}) {
            const OwnedFloats psf =
                fastPsf(straylightRecord(profile.radius, profile.value, {60, 41}, exponent, 1e-4F));
            hash = hashOf(psf.get(), std::size_t{60} * 41, hash);
        }
    }
    EXPECT_EQ(hash, 0x61D53C18B51BD2B9ULL);
}

}  // namespace
