// A few bytes that claim a lot: the memory touched must follow what was brought, not what was
// claimed.
#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <numeric>

#include "calcut/cutter.h"
#include "calcut/vantric.h"
#include "calcut/vantric_rx.h"
#include "Child.h"
#include "fixtures.h"

// Refused allocations instead of reports, and none so large that its shadow alone fills the memory.
// NOLINTBEGIN(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp)
extern "C" const char* __asan_default_options();
extern "C" const char* __asan_default_options() {
    return "allocator_may_return_null=1:max_allocation_size_mb=1024";
}
extern "C" const char* __tsan_default_options();
extern "C" const char* __tsan_default_options() {
    return "allocator_may_return_null=1:max_allocation_size_mb=1024";
}
// NOLINTEND(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp)

using namespace reliability;
using fixtures::Bytes;
using fixtures::bytes;
namespace writer = calcut::writer;

namespace {

constexpr std::size_t mebibyte = std::size_t{1} << 20;
// A record, its small buffers and what the C library keeps at hand.
constexpr std::size_t allowance = 4 * mebibyte;

bool isFailure(std::uint32_t status) {
    return status >= 0x80000000U;
}

// What a read touches; message says why it was not refused.
struct Measured {
    std::size_t touched = 0;
    double seconds = 0;
};

template <class Work>
Measured measure(Work work) {
    const std::size_t before = memoryUse().now;
    const auto start = std::chrono::steady_clock::now();
    work();
    const std::chrono::duration<double> elapsed = std::chrono::steady_clock::now() - start;
    const std::size_t peak = memoryUse().peak;
    return {peak > before ? peak - before : 0, elapsed.count()};
}

void expectRefused(const std::string& name, const Bytes& data) {
    const Outcome outcome = inChild([&]() -> std::string {
        std::uint32_t status = 0;
        std::uint32_t custom = VANTRIC_ERR_INVALID_DATA;
        const Measured measured = measure([&] {
            VantricCalibration* record = nullptr;
            status = vantric_readCalibration(data.data(), data.size(), &record);
            if (record != nullptr) {
                custom = vantric_readCustomFields(data.data(), data.size(), record);
                vantric_freeCalibration(record);
            }
        });
        if (!isFailure(status) && !isFailure(custom)) {
            return "was read";
        }
        if (measuresMemory && measured.touched > allowance) {
            return "touched " + std::to_string(measured.touched / mebibyte) + " MiB";
        }
        std::printf("%s: %.1f MiB touched, %.2f s\n", name.c_str(),
                    static_cast<double>(measured.touched) / mebibyte, measured.seconds);
        return measured.seconds < 30 ? "" : "took " + std::to_string(measured.seconds) + " s";
    });
    EXPECT_TRUE(outcome.wentWell()) << name << ": signal " << outcome.signal << ", exit code "
                                    << outcome.exitCode << ", " << outcome.message;
}

Bytes header(unsigned columns, unsigned rows) {
    return bytes("QOVRXF", 1, columns >> 8, columns & 0xFF, rows >> 8, rows & 0xFF);
}

Bytes longCount(unsigned id, unsigned kind, std::uint32_t count) {
    return bytes(id, kind, 249, count >> 24, (count >> 16) & 0xFF, (count >> 8) & 0xFF,
                 count & 0xFF);
}

TEST(AbsurdSizes, ImagesThatAreClaimed) {
    const Bytes flag = bytes(0, 0, 1, 1);
    const Bytes lens = bytes(1, 4, 9, Bytes(36, 0x40));
    const Bytes shortMask = bytes(2, 5, 1, 1, 0, 0, 0, 1);
    const Bytes values = bytes(3, 6, 0, 1, Bytes(8, 0x40));
    std::vector<std::pair<unsigned, unsigned>> sizes = {{65535, 65535}, {46340, 46341}, {65535, 1}};
    if (measuresMemory) {
        // Pages that are only looked at take seconds here, and minutes under an emulator.
        sizes.insert(sizes.end(), {{20000, 20000}, {65535, 16384}});
    }
    for (const auto& [columns, rows] : sizes) {
        const std::string size = std::to_string(columns) + "x" + std::to_string(rows);
        const Bytes start = bytes(header(columns, rows), flag, lens);
        expectRefused(size, bytes(header(columns, rows), 255));
        expectRefused(size + ", a mask of one value, pixel values that end",
                      bytes(start, shortMask, values));
    }
}

TEST(AbsurdSizes, CountsOfEveryBlock) {
    for (const std::uint32_t count : {0xFFFFFFFFU, 0x80000000U, 0x7FFFFFFFU, 0x40000001U}) {
        for (unsigned kind = 0; kind <= 6; ++kind) {
            for (const unsigned id :
                 {0U, 1U, 2U, 3U, 4U, 5U, 7U, 8U, 9U, 16U, 17U, 18U, 21U, 128U}) {
                Bytes data = bytes(header(8, 4), longCount(id, kind, count));
                if (kind >= 5) {
                    data.push_back(31);
                }
                if (kind == 6) {
                    data.resize(data.size() + 8, 0x40);
                }
                VantricCalibration* record = nullptr;
                EXPECT_TRUE(isFailure(vantric_readCalibration(data.data(), data.size(), &record)))
                    << "id " << id << ", kind " << kind << ", count " << count;
            }
        }
    }
}

TEST(AbsurdSizes, LongCountsAtTheEndOfTheBuffer) {
    for (const unsigned id : {1U, 2U, 128U, 254U}) {
        for (unsigned kind = 0; kind <= 6; ++kind) {
            const Bytes block = bytes(longCount(id, kind, 0xFFFFFFFFU), 12, Bytes(8, 0x40));
            for (std::size_t size = 1; size <= block.size(); ++size) {
                // An allocation of its own, so that the first byte behind it is out of bounds.
                const Bytes data =
                    bytes(header(8, 4),
                          Bytes(block.begin(), block.begin() + static_cast<std::ptrdiff_t>(size)));
                VantricCalibration* record = nullptr;
                EXPECT_TRUE(isFailure(vantric_readCalibration(data.data(), data.size(), &record)));
            }
        }
    }
}

// The record of a small calibration with its end marker taken off.
Bytes openCalibration(unsigned custom, std::optional<std::uint32_t> psfWidth = std::nullopt,
                      std::uint32_t psfHeight = 0) {
    writer::CalibrationOptions options;
    options.columns = 8;
    options.rows = 4;
    options.frequencies = 1;
    options.custom = custom;
    writer::Calibration calibration = writer::makeCalibration(options);
    if (psfWidth) {
        calibration.straylight->psfWidth = *psfWidth;
        calibration.straylight->psfHeight = psfHeight;
    }
    Bytes data = writer::packCalibration(calibration);
    data.pop_back();
    return data;
}

TEST(AbsurdSizes, CustomBlocks) {
    const Bytes open = openCalibration(0);
    const Bytes one = bytes(128, 0, 1, 9);
    for (const unsigned id : {130U, 135U, 200U, 254U}) {
        expectRefused("a gap up to " + std::to_string(id), bytes(open, one, id, 0, 1, 9, 255));
        expectRefused("first at " + std::to_string(id), bytes(open, id, 0, 1, 9, 255));
        expectRefused("claimed at " + std::to_string(id),
                      bytes(open, longCount(id, 0, 0xFFFFFFFFU)));
    }
    expectRefused("a block above 255 bytes", bytes(open, longCount(128, 0, 256), Bytes(256), 255));
    expectRefused("a packed block", bytes(open, 128, 5, 8, 4, Bytes(4), 255));
}

TEST(AbsurdSizes, PsfSizes) {
    const std::vector<std::pair<std::uint32_t, std::uint32_t>> sizes = {{4000000000U, 4000000000U},
                                                                        {4000000000U, 1},
                                                                        {1, 4000000000U},
                                                                        {0xFFFFFFFFU, 0xFFFFFFFFU},
                                                                        {65536, 65536},
                                                                        {8192, 8193},
                                                                        {67108872, 1},
                                                                        {0x80000000U, 2}};
    for (const auto& [width, height] : sizes) {
        expectRefused(std::to_string(width) + "x" + std::to_string(height),
                      bytes(openCalibration(0, width, height), 255));
    }
}

TEST(AbsurdSizes, Images) {
    const Bytes payload = fixtures::minimalPacked();
    std::vector<std::pair<int, Bytes>> images;
    for (const std::uint32_t number : {0xFFFFFFFFU, 0x80000000U, 0x7FFFFFFFU, 0x10000U}) {
        images.emplace_back(CALCUT_LAYOUT_V7, fixtures::v7Image(payload));
        fixtures::putLittle32(images.back().second, 12, number);  // length
        images.emplace_back(CALCUT_LAYOUT_KORVELINE, fixtures::korvelineImage(payload, 1));
        fixtures::putLittle32(images.back().second, 52, number);  // address
        for (const std::size_t length : {std::size_t{0}, std::size_t{0xFFFF}}) {
            Bytes image = images.back().second;
            image[56] = static_cast<std::uint8_t>(length & 0xFF);
            image[57] = static_cast<std::uint8_t>(length >> 8);
            fixtures::putLittle32(image, 58, 0);  // checksum of nothing
            images.emplace_back(CALCUT_LAYOUT_KORVELINE, image);
        }
    }
    for (const auto& [layout, image] : images) {
        const fixtures::TempDir out;
        const std::string dump = out / "dump";
        fixtures::writeBytes(dump, image);
        const Outcome outcome = inChild([&, layout = layout]() -> std::string {
            int result = 0;
            const Measured measured = measure([&] {
                result = cutEEPROMContent(layout, dump.c_str(), out.path().c_str(), nullptr);
            });
            if (measuresMemory && measured.touched > allowance) {
                return "touched " + std::to_string(measured.touched / mebibyte) + " MiB";
            }
            return result == 1 ? "" : "was cut";
        });
        EXPECT_TRUE(outcome.wentWell()) << outcome.message << outcome.signal;
        EXPECT_EQ(out.names(), std::vector<std::string>{"dump"});
    }
}

// Calibrations that are read, with as little input for each pixel as the format allows.
TEST(AbsurdSizes, MemoryOfReadsInProportionToTheInput) {
    if (!measuresMemory) {
        GTEST_SKIP() << "memory is measured in builds without sanitizers, on the machine itself";
    }
    struct Case {
        const char* name;
        unsigned columns, rows, valueBits;
        bool shortMask;
        std::size_t mostPerByte;
    };
    for (const Case& size :
         {Case{"224x172, 12 bits", 224, 172, 12, false, 32},
          Case{"1024x1024, 12 bits", 1024, 1024, 12, false, 32},
          Case{"1024x1024, 1 bit", 1024, 1024, 1, false, 128},
          Case{"1024x1024, 1 bit, mask of one value", 1024, 1024, 1, true, 128}}) {
        const std::size_t pixels = std::size_t{size.columns} * size.rows;
        writer::PackedWriter out(static_cast<std::uint16_t>(size.columns),
                                 static_cast<std::uint16_t>(size.rows));
        const std::vector<float> four = {1.0F, 2.0F, 3.0F, 4.0F};
        const std::vector<float> lens = {200.0F, 200.0F, 512.0F, 512.0F, 0.1F, 0, 0, 0, 0};
        const std::vector<std::uint32_t> ones(pixels, 1);
        const std::span<const std::uint32_t> mask(ones.data(), size.shortMask ? 1 : pixels);
        out.raw(0, std::vector<std::uint8_t>{1});
        out.floats(1, lens);
        out.packedUints(2, mask, 1);
        out.packedFixed(3, ones, size.valueBits, {0.5F, 1.0F});
        out.uint32s(16, std::vector<std::uint32_t>{80});
        out.packedFixed(17, ones, size.valueBits, {0.5F, 1.0F});
        for (const std::uint8_t id : Bytes{18, 19, 21, 22}) {
            out.floats(id, four);
        }
        const Bytes data = out.finish();
        const Outcome outcome = inChild([&]() -> std::string {
            std::uint32_t status = 1;
            const Measured measured = measure([&] { fixtures::read(data, &status); });
            const std::size_t limit = size.mostPerByte * data.size() + mebibyte;
            std::printf("%s: %zu bytes in, %zu bytes touched, factor %.1f\n", size.name,
                        data.size(), measured.touched,
                        static_cast<double>(measured.touched) / static_cast<double>(data.size()));
            return status == VANTRIC_OK && measured.touched <= limit
                       ? ""
                       : "status " + std::to_string(status) + ", " +
                             std::to_string(measured.touched);
        });
        EXPECT_TRUE(outcome.wentWell()) << size.name << ": " << outcome.message;
    }
}

// The one cost that does not follow the input is the PSF, and it has a limit.
TEST(AbsurdSizes, LargestPsf) {
    if (!measuresMemory) {
        GTEST_SKIP() << "memory is measured in builds without sanitizers, on the machine itself";
    }
    const Bytes data = bytes(openCalibration(0, 8192, 8192), 255);
    const Outcome outcome = inChild(
        [&]() -> std::string {
            std::uint32_t status = 1;
            const Measured measured = measure([&] { fixtures::read(data, &status); });
            std::printf("PSF of 2^26 elements: %zu MiB touched, %.2f s\n",
                        measured.touched / mebibyte, measured.seconds);
            return status == VANTRIC_OK && measured.touched < 300 * mebibyte ? ""
                                                                             : "too much memory";
        },
        120);
    EXPECT_TRUE(outcome.wentWell()) << outcome.message;
}

}  // namespace
