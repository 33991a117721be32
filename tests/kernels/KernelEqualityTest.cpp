// Every fast kernel against its plain form, bit for bit. Any NaN equals any NaN: which payload an
// operation hands on depends on the machine and on the order of its operands.
#include <gtest/gtest.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <numeric>
#include <random>
#include <tuple>

#include "calibration/directions.h"
#include "calibration/packed/Compressed.h"
#include "cutter/CRC32.h"
#include "cutter/CRC32Kernels.h"
#include "fixtures.h"
#include "plain/plain.h"

using namespace fixtures;
namespace plain = calcut::plain;

namespace {

using Floats = std::vector<float>;
using Words = std::vector<std::uint32_t>;

constexpr float inf = std::numeric_limits<float>::infinity();
constexpr float nan = std::numeric_limits<float>::quiet_NaN();
constexpr float untouched = -12345.0F;
constexpr std::uint32_t untouchedWord = 0xDEADBEEFU;

std::uint32_t bitsOf(float value) {
    return std::isnan(value) ? 0x7FC00000U : std::bit_cast<std::uint32_t>(value);
}

Words bitsOf(const float* values, std::size_t count) {
    Words bits(count);
    std::transform(values, values + count, bits.begin(), [](float x) { return bitsOf(x); });
    return bits;
}

Bytes bigEndianBytes(const Words& words) {
    Bytes bytes;
    for (const std::uint32_t word : words) {
        for (const unsigned shift : {24U, 16U, 8U, 0U}) {
            bytes.push_back(static_cast<std::uint8_t>(word >> shift));
        }
    }
    return bytes;
}

// The same on every machine.
class Random {
  public:
    std::uint32_t word() { return static_cast<std::uint32_t>(generator_()); }
    float between(float low, float high) {
        return low + (high - low) * (static_cast<float>(word() >> 8) * 0x1p-24F);
    }
    template <class Element>
    std::vector<Element> many(std::size_t count) {
        std::vector<Element> result(count);
        std::generate(result.begin(), result.end(), [&] { return static_cast<Element>(word()); });
        return result;
    }

  private:
    std::mt19937 generator_{20240229};
};

struct Size {
    std::uint32_t columns, rows;
};

// ------------------------------------------------------------------------------- directions --

constexpr std::size_t guard = 8;  // floats behind the directions

Floats fastDirections(const Floats& lens, const Size& size) {
    const VantricImagerArea area = {0, 0, size.columns, size.rows};
    const std::uint32_t count = size.columns * size.rows * 3;
    Floats result(count + guard, untouched);
    EXPECT_EQ(vantric_updateDirections(result.data(), count, lens.data(), &area), ok);
    return result;
}

#ifdef __x86_64__
constexpr auto* avx2Directions = vantric::computeDirectionsAvx2;
#else
constexpr auto* avx2Directions = vantric::computeDirectionsPortable;
#endif

// fx, fy, cx, cy, k1, k2, p1, p2, k3
std::vector<Floats> lenses() {
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
}

TEST(KernelEquality, DirectionsOfEveryLensAndEveryShapeAroundTheTileSize) {
    std::vector<std::pair<Floats, Size>> cases;
    for (const Floats& lens : lenses()) {
        for (const Size size : {Size{1, 1}, Size{33, 18}, Size{1, 9}, Size{50, 1}}) {
            cases.emplace_back(lens, size);
        }
    }
    const Floats usual = lenses()[1];
    for (std::uint32_t i = 0; i < 35 * 9; ++i) {
        cases.emplace_back(usual, Size{1 + i % 35, 1 + i / 35});
    }
    for (const Size size : {Size{1, 300}, Size{300, 1}, Size{224, 172}, Size{1001, 3}}) {
        cases.emplace_back(usual, size);
    }
    auto* const byAvx2 = vantric::hasAvx2() ? avx2Directions : vantric::computeDirectionsPortable;
    for (const auto& [lens, size] : cases) {
        const Floats fast = fastDirections(lens, size);
        for (auto* compute :
             {plain::updateDirections, vantric::computeDirectionsPortable, byAvx2}) {
            Floats other(fast.size(), untouched);
            compute(other.data(), lens.data(), size.columns, size.rows);
            EXPECT_EQ(bitsOf(fast.data(), fast.size()), bitsOf(other.data(), other.size()))
                << size.columns << " x " << size.rows << ", lens " << testing::PrintToString(lens);
        }
    }
}

// ------------------------------------------------------------------- interpolation and PSF --

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
                                {{2, 2, 2, 5, 3, 8, 8}, {3, 1, 2, 0, 4, 9, 5}},
                                {{-1, 2, 5}, {1, 0, 2}},  // the origin is not the first in order
                                {{1, 2, 3, 4, 5}, {-1, 4, 0, 8, 3}},  // distances at the nodes
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

// The PSF that such a record gets from that function.
template <class Calculate>
Words psfOf(const Profile& profile, const Size& size, float exponent, float offset,
            Calculate calculate) {
    VantricCalibration record = {};
    record.straylightScale = offset == 0.0F ? -0.75F : 0.75F;  // a negative zero stays one
    std::copy(profile.radius.begin(), profile.radius.end(), record.straylightRadius);
    std::copy(profile.value.begin(), profile.value.end(), record.straylightValue);
    record.straylightExponent = exponent;
    record.straylightOffset = offset;
    record.straylightCentre = 0.97F;
    record.straylightPointCount = static_cast<std::uint8_t>(profile.radius.size());
    record.psfWidth = size.columns;
    record.psfHeight = size.rows;
    calculate(record);
    const std::size_t elements = std::size_t{size.columns} * size.rows;
    const Words bits = bitsOf(record.psf, std::max<std::size_t>(elements, 1));
    std::free(record.psf);
    return bits;
}

void fastPsf(VantricCalibration& record) {
    EXPECT_EQ(vantric_allocateAndCalculatePsf(&record), ok);
}

TEST(KernelEquality, PsfOfEverySizeProfileAndExponent) {
    const std::vector<Size> sizes = {
        {0, 0}, {0, 5}, {5, 0},  {1, 1},  {1, 2},   {2, 1},  {2, 2},  {3, 3},   {4, 4},
        {5, 8}, {8, 5}, {1, 17}, {17, 1}, {33, 20}, {7, 12}, {12, 7}, {31, 31}, {0xFFFFFFFFU, 0}};
    for (const Profile& profile : profiles()) {
        for (const Size& size : sizes) {
            for (const float exponent : {2.0F, 2.1F, 0.5F, -1.5F, 0.0F, inf, nan}) {
                for (const float offset : {0.0F, 1e-3F, -0.0F, nan}) {
                    ASSERT_EQ(
                        psfOf(profile, size, exponent, offset, fastPsf),
                        psfOf(profile, size, exponent, offset, plain::allocateAndCalculatePsf))
                        << size.columns << " x " << size.rows << ", exponent " << exponent;
                }
            }
        }
    }
}

TEST(KernelEquality, InterpolationInsideAtAndOutsideTheNodes) {
    Random random;
    for (const auto& [radius, value] : profiles()) {
        const auto n = static_cast<std::uint32_t>(radius.size());
        if (n < 2) {
            continue;
        }
        VantricPoly* fast = vantric_createPolyHandle(radius.data(), value.data(), n);
        VantricPoly* expected = plain::createPoly(radius.data(), value.data(), n);
        EXPECT_EQ(bitsOf(fast->slope, n), bitsOf(expected->slope, n));
        Floats at = radius;
        at.insert(at.end(), {-1, 0, 1e6F, inf, -inf, nan});
        std::generate_n(std::back_inserter(at), 500, [&] { return random.between(0, 60); });
        for (const float t : at) {
            EXPECT_EQ(bitsOf(vantric_cinterpol_def(fast, t, 7)),
                      bitsOf(plain::interpolate(*expected, t, 7)))
                << t;
        }
        vantric_freePoly(fast);
        vantric_freePoly(expected);
    }
}

// --------------------------------------------------------------------------------- unpacking --

// The low bytes of the same values, a byte for each; as many as there are.
std::pair<std::uint32_t, Bytes> lowBytes(const Words& words, std::uint64_t count, unsigned bits) {
    const Bytes packed = bigEndianBytes(words);
    Bytes low(count + 4, static_cast<std::uint8_t>(untouchedWord));
    const std::uint32_t status =
        vantric::decodePackedLowBytes(packed.data(), words.size(), count, bits, low.data());
    return {status, low};
}

TEST(KernelEquality, UnpackingOfEveryWidthAndCountWithTooFewJustEnoughAndMoreWords) {
    const Words words = Random().many<std::uint32_t>(4200);
    std::vector<std::uint64_t> counts(71);
    std::iota(counts.begin(), counts.end(), 0);
    // Around the sizes of the groups in which values are unpacked, and odd ones beyond.
    counts.insert(counts.end(), {95, 96, 97, 127, 128, 129, 255, 257, 1023, 1024, 1025, 2047, 2048,
                                 2049, 3000, 4099});
    for (std::uint8_t bits = 1; bits <= 31; ++bits) {
        for (const std::uint64_t n : counts) {
            const std::uint64_t needed = (n * bits + 31) / 32;
            for (const std::uint64_t wordCount :
                 {needed, needed + 1, needed - std::min<std::uint64_t>(needed, 1), needed / 2}) {
                // Copied, so that a word read behind the end is seen by the address sanitizer.
                const Words exact(words.data(), words.data() + wordCount);
                const auto* in = exact.data();
                Words fast(n + 4, untouchedWord), expected = fast;
                Words fastScratch = fast, expectedScratch = fast;
                Floats fastFloats(n + 4, untouched), expectedFloats = fastFloats;
                SCOPED_TRACE(testing::Message() << int{bits} << " bits, " << n << " values");
                const auto status = plain::unpackUint(in, wordCount, n, bits, expected.data());
                const Bytes low(expected.begin(), expected.end());
                ASSERT_EQ(lowBytes(exact, n, bits), std::pair(status, low));
                ASSERT_EQ(vantric_unpackRXUint(in, wordCount, n, bits, fast.data()), status);
                ASSERT_EQ(vantric_unpackRXFloat(in, wordCount, n, bits, fastScratch.data(),
                                                fastFloats.data(), 0.37F, -3.1F),
                          plain::unpackFloat(in, wordCount, n, bits, expectedScratch.data(),
                                             expectedFloats.data(), 0.37F, -3.1F));
                ASSERT_EQ(std::tie(fast, fastScratch), std::tie(expected, expectedScratch));
                ASSERT_EQ(bitsOf(fastFloats.data(), n + 4), bitsOf(expectedFloats.data(), n + 4));
            }
        }
    }
}

// Blocks at any alignment of the payload and the destination.
TEST(KernelEquality, BlocksOfEveryKindWidthAndAlignment) {
    const Bytes source = Random().many<std::uint8_t>(20000);
    for (std::uint32_t i = 0; i < 7 * 31; ++i) {
        const std::uint32_t kind = i % 7;
        const auto bits = static_cast<std::uint8_t>(1 + i / 7);
        for (const std::uint32_t count : {0U, 1U, 7U, 33U, 255U, 256U, 257U, 1025U, 2100U}) {
            SCOPED_TRACE(testing::Message() << "kind " << kind << ", " << int{bits} << " bits, "
                                            << count << " values");
            const std::size_t shift = (count + bits) % 4;
            const RXBlockHeader block = {0, kind, count, bits, 0.01F, 5.5F};
            const Bytes exact = prefix(source, shift + vantric_getRXPackedBlockSize(&block));
            VantricStream stream = {exact.data(), shift, exact.size()};
            VantricStream plainStream = stream;
            Bytes scratch(8 * std::size_t{count} + 16);
            Bytes fast(shift + std::size_t{count} * 4 + 8, 0xDE);
            Bytes expected(fast.size() - shift, 0xDE);
            ASSERT_EQ(vantric_decodeRXBlock(&stream, &block, scratch.data(), scratch.size(),
                                            fast.data() + shift, std::uint64_t{count} * 4),
                      plain::decodeBlock(plainStream, block, scratch.data(), scratch.size(),
                                         expected.data(), std::uint64_t{count} * 4));
            ASSERT_EQ(stream.position, plainStream.position);
            ASSERT_EQ(std::memcmp(fast.data() + shift, expected.data(), expected.size()), 0);
        }
    }
}

// ------------------------------------------------------------------------------------ floats --

// What the library makes of words as a float block.
Floats decodeFloatBlock(const Words& words) {
    const Bytes bytes = bigEndianBytes(words);
    const RXBlockHeader block = {0, RX_KIND_FLOAT, static_cast<std::uint32_t>(words.size()), 0, 0,
                                 0};
    Floats values(words.size());
    VantricStream stream = vantric_createStreamFromData(bytes.data(), bytes.size());
    EXPECT_EQ(vantric_decodeRXBlock(&stream, &block, nullptr, 0,
                                    reinterpret_cast<std::uint8_t*>(values.data()), bytes.size()),
              ok);
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
    std::generate_n(std::back_inserter(mantissas), 20, [&] { return random.word() & 0x7FFFFFU; });
    Words words;
    for (std::uint32_t exponent = 0; exponent < 256; ++exponent) {
        for (const std::uint32_t mantissa : mantissas) {
            const std::uint32_t magnitude = exponent << 23 | mantissa;
            words.insert(words.end(), {magnitude, 0U - magnitude});
        }
    }
    words.insert(words.end(), {0x80000000U, 0x80000001U});
    return words;
}

TEST(KernelEquality, FloatsOfEveryExponentAndUnusualOnesAtEachPlace) {
    const Words words = floatWords();
    EXPECT_EQ(firstWrongWord(words), -1);
    // Each alone, so that no neighbour decides by which rule it is decoded.
    for (const std::uint32_t word : words) {
        ASSERT_EQ(firstWrongWord({word}), -1);
    }
    for (const std::uint32_t word : {0x00000001U, 0x00FFFFFFU, 0x80000000U, 0xFF800000U}) {
        for (std::size_t at = 0; at < 600; ++at) {
            Words mixed(600, 0x40123456);
            mixed[at] = word;
            ASSERT_EQ(firstWrongWord(mixed), -1) << at;
        }
    }
}

// ---------------------------------------------------------------------------------- checksum --

std::vector<std::size_t> checksumLengths() {
    std::vector<std::size_t> lengths(1101);
    std::iota(lengths.begin(), lengths.end(), 0);
    lengths.insert(lengths.end(), {4095, 8191, 8192, 8215, 65535, 65536, 65537, 100003, 299990});
    return lengths;
}

TEST(KernelEquality, ChecksumOfEveryLengthAndStartInEveryWay) {
    Bytes data = Random().many<std::uint8_t>(300000);
    for (const std::size_t length : checksumLengths()) {
        for (std::uint8_t* start = data.data(); start < data.data() + 9; ++start) {
            const std::uint32_t sum = plain::crc32(start, length);
            ASSERT_EQ(calc_crc32(start, length), sum) << length;
            ASSERT_EQ(~checksum::sideBySide(~0U, start, length), sum) << length;
            if (checksum::hasInstructions()) {
                ASSERT_EQ(~checksum::byInstructions(~0U, start, length), sum) << length;
            }
        }
    }
}

// The table of a host is used as it is, also where it is not linear.
TEST(KernelEquality, ChecksumByAChangedTable) {
    Bytes data = Random().many<std::uint8_t>(300000);
    Words standard(crc32table, crc32table + 256);
    Words castagnoli;
    for (std::uint32_t i = 0; i < 256; ++i) {
        std::uint32_t rest = i;
        for (int bit = 0; bit < 8; ++bit) {
            rest = (rest >> 1) ^ ((rest & 1U) != 0 ? 0x82F63B78U : 0U);
        }
        castagnoli.push_back(rest);
    }
    std::vector<Words> tables = {castagnoli, Random().many<std::uint32_t>(256)};
    for (const std::size_t changed : {0U, 127U, 255U}) {
        tables.push_back(standard);
        tables.back()[changed] ^= 1U;
    }
    for (const Words& table : tables) {
        std::copy(table.begin(), table.end(), crc32table);
        for (const std::size_t length : checksumLengths()) {
            EXPECT_EQ(calc_crc32(data.data(), length),
                      plain::crc32(data.data(), length, table.data()))
                << length;
        }
    }
    std::copy(standard.begin(), standard.end(), crc32table);
}

// ------------------------------------------------------------------------- between machines --

// The same number on every machine: no result may depend on the instruction set.
TEST(KernelEquality, ResultsAreThoseOfEveryOtherMachine) {
    std::uint64_t hash = 0xCBF29CE484222325ULL;
    const auto add = [&hash](const Words& words) {
        for (const std::uint32_t word : words) {
            for (unsigned shift = 0; shift < 32; shift += 8) {
                hash = (hash ^ ((word >> shift) & 0xFF)) * 0x100000001B3ULL;
            }
        }
    };
    for (const Floats& lens : lenses()) {
        const Floats directions = fastDirections(lens, {45, 21});
        add(bitsOf(directions.data(), directions.size() - guard));
    }
    const Floats floats = decodeFloatBlock(floatWords());
    add(bitsOf(floats.data(), floats.size()));
    const Words words = Random().many<std::uint32_t>(1000);
    for (std::uint8_t bits = 1; bits <= 31; ++bits) {
        Words unpacked(1000);
        Floats converted(1000);
        ASSERT_EQ(vantric_unpackRXFloat(words.data(), words.size(), unpacked.size(), bits,
                                        unpacked.data(), converted.data(), 0.013F, -7.7F),
                  ok);
        add(unpacked);
        add(bitsOf(converted.data(), converted.size()));
    }
    EXPECT_EQ(hash, 0x3B78A7BC7D788C2AULL);
}

}  // namespace
