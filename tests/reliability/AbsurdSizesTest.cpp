// A few bytes that claim a lot: the memory touched must follow what was brought, not what was
// claimed.
#include <gtest/gtest.h>

#include <chrono>
#include <tuple>

#include "calcut/cutter.h"
#include "Child.h"
#include "fixtures.h"

using namespace fixtures;
using namespace reliability;
namespace writer = calcut::writer;

namespace {

constexpr std::size_t mebibyte = std::size_t{1} << 20;
// A record, its small buffers and what the C library keeps at hand.
constexpr std::size_t allowance = 4 * mebibyte;

// Work returns whether all was well; it must not touch more than that much memory.
template <class Work>
void expectWithin(std::size_t most, const std::string& name, Work work) {
    const Outcome outcome = inChild(
        [&]() -> std::string {
            const std::size_t before = memoryUse().now;
            const auto start = std::chrono::steady_clock::now();
            const bool good = work();
            const std::chrono::duration<double> elapsed = std::chrono::steady_clock::now() - start;
            const std::size_t peak = memoryUse().peak;
            const std::size_t touched = peak > before ? peak - before : 0;
            std::printf("%s: %zu of %zu bytes touched, %.2f s\n", name.c_str(), touched, most,
                        elapsed.count());
            const bool within = (!measuresMemory || touched <= most) && elapsed.count() < 30;
            return good && within ? "" : good ? "too much memory or time" : "wrong result";
        },
        120);
    EXPECT_TRUE(outcome.wentWell()) << name << ": " << outcome.text();
}

bool isFailure(std::uint32_t status) {
    return status >= 0x80000000U;
}

// By the read or by the custom pass.
void expectRefused(const std::string& name, const Bytes& data) {
    expectWithin(allowance, name, [&] {
        std::uint32_t status = 0;
        const Record record = fixtures::read(data, &status);
        return isFailure(status) ||
               isFailure(vantric_readCustomFields(data.data(), data.size(), record.get()));
    });
}

Bytes header(unsigned columns, unsigned rows) {
    return bytes("QOVRXF", 1, columns >> 8, columns, rows >> 8, rows);
}

Bytes longCount(unsigned id, unsigned kind, std::uint32_t count) {
    return bytes(id, kind, 249, count >> 24, count >> 16, count >> 8, count);
}

TEST(AbsurdSizes, ImagesThatAreClaimed) {
    const Bytes shortMask = bytes(2, 5, 1, 1, 0, 0, 0, 1);
    const Bytes values = bytes(3, 6, 0, 1, Bytes(8, 0x40));
    std::vector<std::pair<unsigned, unsigned>> sizes = {{65535, 65535}, {46340, 46341}, {65535, 1}};
    if (measuresMemory) {
        // Pages that are only looked at take seconds here, and minutes under an emulator.
        sizes.insert(sizes.end(), {{20000, 20000}, {65535, 16384}});
    }
    for (const auto& [columns, rows] : sizes) {
        const std::string size = std::to_string(columns) + "x" + std::to_string(rows);
        const Bytes start = header(columns, rows);
        expectRefused(size, bytes(start, 255));
        expectRefused(size + ", a mask of one value, pixel values that end",
                      bytes(start, 0, 0, 1, 1, 1, 4, 9, Bytes(36, 0x40), shortMask, values));
    }
}

// The record of a small calibration with its end marker taken off.
Bytes openCalibration(std::uint32_t psfWidth = 1, std::uint32_t psfHeight = 1) {
    writer::Calibration calibration =
        writer::makeCalibration({.columns = 8, .rows = 4, .frequencies = 1, .custom = 0});
    calibration.straylight->psfWidth = psfWidth;
    calibration.straylight->psfHeight = psfHeight;
    Bytes data = writer::packCalibration(calibration);
    data.pop_back();
    return data;
}

TEST(AbsurdSizes, CustomBlocksAndPsfSizes) {
    const Bytes open = openCalibration();
    for (const unsigned id : {130U, 135U, 200U, 254U}) {
        const std::string name = std::to_string(id);
        expectRefused("a gap up to " + name, bytes(open, 128, 0, 1, 9, id, 0, 1, 9, 255));
        expectRefused("first at " + name, bytes(open, id, 0, 1, 9, 255));
        expectRefused("claimed at " + name, bytes(open, longCount(id, 0, 0xFFFFFFFFU)));
    }
    expectRefused("a block above 255 bytes", bytes(open, longCount(128, 0, 256), Bytes(256), 255));
    expectRefused("a packed block", bytes(open, 128, 5, 8, 4, Bytes(4), 255));
    const std::pair<std::uint32_t, std::uint32_t> sizes[] = {{4000000000U, 4000000000U},
                                                             {4000000000U, 1},
                                                             {1, 4000000000U},
                                                             {0xFFFFFFFFU, 0xFFFFFFFFU},
                                                             {65536, 65536},
                                                             {8192, 8193},
                                                             {67108872, 1},
                                                             {0x80000000U, 2}};
    for (const auto& [width, height] : sizes) {
        expectRefused("PSF of " + std::to_string(width) + "x" + std::to_string(height),
                      bytes(openCalibration(width, height), 255));
    }
}

TEST(AbsurdSizes, Images) {
    const Bytes v7 = v7Image(minimalPacked());
    const Bytes korveline = korvelineImage(minimalPacked(), 1);
    for (const std::uint32_t number : {0xFFFFFFFFU, 0x80000000U, 0x7FFFFFFFU, 0x10000U}) {
        const Bytes little = bytes(number, number >> 8, number >> 16, number >> 24);
        const Bytes elsewhere = patched(korveline, 52, little);
        const std::pair<int, Bytes> images[] = {
            {CALCUT_LAYOUT_V7, patched(v7, 12, little)},
            {CALCUT_LAYOUT_KORVELINE, elsewhere},
            // Of length 0 or 65535, with the checksum of nothing.
            {CALCUT_LAYOUT_KORVELINE, patched(elsewhere, 56, Bytes(6))},
            {CALCUT_LAYOUT_KORVELINE, patched(elsewhere, 56, bytes(0xFF, 0xFF, 0, 0, 0, 0))}};
        for (const auto& [layout, image] : images) {
            const TempDir out;
            const std::string dump = out / "dump";
            writeBytes(dump, image);
            expectWithin(allowance, "image", [&, layout = layout] {
                return cutEEPROMContent(layout, dump.c_str(), out.path().c_str(), nullptr) == 1;
            });
            EXPECT_EQ(out.names(), std::vector<std::string>{"dump"});
        }
    }
}

// Calibrations that are read, with as little input for each pixel as the format allows. The one
// cost that does not follow the input is the PSF, and it has a limit.
TEST(AbsurdSizes, MemoryOfReads) {
    if (!measuresMemory) {
        GTEST_SKIP() << "memory is measured in builds without sanitizers, on the machine itself";
    }
    using Case = std::tuple<std::uint16_t, std::uint16_t, unsigned, bool, std::size_t>;
    const auto expectRead = [](std::size_t most, const std::string& name, const Bytes& data) {
        expectWithin(most, name, [&] { return fixtures::read(data) != nullptr; });
    };
    for (const auto& [columns, rows, valueBits, shortMask, mostPerByte] :
         {Case{224, 172, 12, false, 32}, Case{1024, 1024, 12, false, 32},
          Case{1024, 1024, 1, false, 128}, Case{1024, 1024, 1, true, 128}}) {
        const std::vector<std::uint32_t> ones(std::size_t{columns} * rows, 1);
        writer::PackedWriter out(columns, rows);
        out.raw(0, Bytes{1});
        out.floats(1, std::vector<float>{200, 200, 512, 512, 0.1F, 0, 0, 0, 0});
        out.packedUints(2, std::span(ones.data(), shortMask ? 1 : ones.size()), 1);
        out.packedFixed(3, ones, valueBits, {0.5F, 1.0F});
        out.uint32s(16, std::vector<std::uint32_t>{80});
        out.packedFixed(17, ones, valueBits, {0.5F, 1.0F});
        for (const std::uint8_t id : Bytes{18, 19, 21, 22}) {
            out.floats(id, std::vector<float>{1, 2, 3, 4});
        }
        const Bytes data = out.finish();
        expectRead(mostPerByte * data.size() + mebibyte, std::to_string(data.size()) + " bytes",
                   data);
    }
    expectRead(300 * mebibyte, "largest PSF", bytes(openCalibration(8192, 8192), 255));
}

}  // namespace
