// Cuts and reads in many threads at once. Each test starts in a process of its own, so its first
// call is the first of the process.
#include <gtest/gtest.h>

#include <atomic>
#include <barrier>
#include <thread>

#include "calcut/cutter.h"
#include "calcut/vantric.h"
#include "fixtures.h"

using fixtures::Bytes;

namespace {

constexpr int threadCount = 8;
constexpr int rounds = 12;

// Runs work(0) to work(count - 1) at once, again and again; each round starts without handlers.
template <class Work>
void together(int count, Work work) {
    for (int round = 0; round < rounds; ++round) {
        std::barrier start(count);
        std::vector<std::thread> threads;
        threads.reserve(static_cast<std::size_t>(count));
        for (int i = 0; i < count; ++i) {
            threads.emplace_back([&, i] {
                start.arrive_and_wait();
                work(i);
            });
        }
        for (std::thread& thread : threads) {
            thread.join();
        }
        vantric_clearCalibrationHandlers();
    }
}

Bytes calibration(unsigned number) {
    calcut::writer::CalibrationOptions options;
    options.columns = static_cast<std::uint16_t>(16 + number);
    options.rows = 12;
    options.seed = number;
    return calcut::writer::packCalibration(calcut::writer::makeCalibration(options));
}

std::size_t pixelsOf(const VantricCalibration& record) {
    return std::size_t{record.imagerArea.columns} * record.imagerArea.rows;
}

TEST(Threads, CutDifferentDumpsFromAColdStart) {
    const fixtures::TempDir directory;
    std::vector<std::unique_ptr<fixtures::TempDir>> outs;
    std::vector<Bytes> payloads;
    std::vector<std::uint16_t> masked;
    for (unsigned i = 0; i < threadCount; ++i) {
        payloads.push_back(calibration(i));
        const fixtures::Record record = fixtures::readPlain(payloads[i]);
        masked.push_back(static_cast<std::uint16_t>(
            std::count(record->pixelMask, record->pixelMask + pixelsOf(*record), std::uint8_t{0})));
        calcut::writer::KorvelineOptions options;
        options.signature = Bytes(20 + i, static_cast<std::uint8_t>(i));
        const std::string number = std::to_string(i);
        fixtures::writeBytes(directory / number,
                             i % 2 == 0 ? calcut::writer::makeV7Image(payloads[i])
                                        : calcut::writer::makeKorvelineImage(payloads[i], options));
        outs.push_back(std::make_unique<fixtures::TempDir>());
    }
    std::atomic<int> failures = 0;
    together(threadCount, [&](int i) {
        const std::string dump = directory / std::to_string(i);
        const fixtures::TempDir& out = *outs[static_cast<std::size_t>(i)];
        EEPROMMetaInformation meta = {};
        float lens[CALCUT_LENS_PARAMETER_COUNT];
        const int layout = i % 2 == 0 ? CALCUT_LAYOUT_V7 : CALCUT_LAYOUT_KORVELINE;
        failures += cutEEPROMContent(layout, dump.c_str(), out.path().c_str(), &meta) != 0;
        failures += readLensParameters(0, (out / "lensdata.dat").c_str(), lens) != 0;
        failures += meta.zeroMaskCount != masked[static_cast<std::size_t>(i)];
    });
    EXPECT_EQ(failures, 0);
    for (unsigned i = 0; i < threadCount; ++i) {
        const fixtures::TempDir& out = *outs[i];
        const fixtures::Record record = fixtures::read(payloads[i]);
        const auto* lens = reinterpret_cast<const std::uint8_t*>(record->lensParameters);
        EXPECT_EQ(fixtures::readBytes(out / "qov.spc"), payloads[i]) << i;
        EXPECT_EQ(fixtures::readBytes(out / "lensdata.dat"), Bytes(lens, lens + 36)) << i;
        if (i % 2 != 0) {
            EXPECT_EQ(fixtures::readBytes(out / "signature.bin"),
                      Bytes(20 + i, static_cast<std::uint8_t>(i)));
        }
    }
}

int refuses(const std::uint8_t* /*data*/, std::size_t /*size*/) {
    return 0;
}

std::uint32_t ownType() {
    return 99;
}

TEST(Threads, ReadWhileAHandlerIsRegistered) {
    const Bytes data = calibration(1);
    const fixtures::Record expected = fixtures::read(data);
    vantric_clearCalibrationHandlers();
    const std::size_t floats = 3 * pixelsOf(*expected);
    std::atomic<int> failures = 0;
    std::atomic<int> registered = 0;
    together(threadCount, [&](int i) {
        if (i == 0) {
            VantricCalibrationHandler handler = {};
            handler.supports = refuses;
            handler.getCalibrationType = ownType;
            registered += vantric_registerCalibrationHandler(&handler);
            registered += vantric_registerCalibrationHandler(&handler);  // known already
            return;
        }
        std::uint32_t status = 1;
        const fixtures::Record record = fixtures::read(data, &status);
        failures +=
            status != VANTRIC_OK || vantric_getCalibrationType(data.data(), data.size()) != 3 ||
            !std::equal(record->directions, record->directions + floats, expected->directions) ||
            vantric_readCustomFields(data.data(), data.size(), record.get()) != VANTRIC_OK;
        const fixtures::Record copy(vantric_copyCalibration(expected.get()));
        failures += copy->straylightPointCount != expected->straylightPointCount;
    });
    EXPECT_EQ(failures, 0);
    EXPECT_EQ(registered, rounds);
}

}  // namespace
