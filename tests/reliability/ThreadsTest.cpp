// Cuts and reads in many threads at once. Each test starts in a process of its own, so its first
// call is the first of the process.
#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <barrier>
#include <thread>

#include "calcut/cutter.h"
#include "fixtures.h"

using namespace fixtures;

namespace {

constexpr int threadCount = 8;
constexpr int rounds = 12;

// Runs work(0) to work(threadCount - 1) at once, again and again; each round starts without
// handlers.
template <class Work>
void together(Work work) {
    for (int round = 0; round < rounds; ++round) {
        std::barrier start(threadCount);
        std::vector<std::thread> threads;
        for (std::size_t i = 0; i < threadCount; ++i) {
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
    const auto columns = static_cast<std::uint16_t>(16 + number);
    return calcut::writer::packCalibration(
        calcut::writer::makeCalibration({.columns = columns, .rows = 12, .seed = number}));
}

std::size_t pixelsOf(const VantricCalibration& record) {
    return std::size_t{record.imagerArea.columns} * record.imagerArea.rows;
}

// A dump with its layout, and what a cut makes of it.
struct Job {
    int layout;
    Bytes calibration, signature;
    TempDir directory;
};

TEST(Threads, CutDifferentDumpsFromAColdStart) {
    std::array<Job, threadCount> jobs;
    for (unsigned i = 0; i < threadCount; ++i) {
        Job& job = jobs[i];
        job.layout = i % 2 == 0 ? CALCUT_LAYOUT_V7 : CALCUT_LAYOUT_KORVELINE;
        job.calibration = calibration(i);
        job.signature = Bytes(20 + i, static_cast<std::uint8_t>(i));
        writeBytes(job.directory / "dump", i % 2 == 0
                                               ? calcut::writer::makeV7Image(job.calibration)
                                               : calcut::writer::makeKorvelineImage(
                                                     job.calibration, {0x2068, job.signature}));
    }
    std::atomic<int> failures = 0;
    together([&](std::size_t i) {
        const TempDir& directory = jobs[i].directory;
        EEPROMMetaInformation meta = {};
        float lens[CALCUT_LENS_PARAMETER_COUNT];
        failures += cutEEPROMContent(jobs[i].layout, (directory / "dump").c_str(),
                                     directory.path().c_str(), &meta) != 0;
        failures += readLensParameters(0, (directory / "lensdata.dat").c_str(), lens) != 0;
        const Record record = readPlain(jobs[i].calibration);
        const std::uint8_t* mask = record->pixelMask;
        failures += meta.zeroMaskCount != std::count(mask, mask + pixelsOf(*record), 0);
    });
    EXPECT_EQ(failures, 0);
    for (const Job& job : jobs) {
        const Record record = readPlain(job.calibration);
        const auto* lens = reinterpret_cast<const std::uint8_t*>(record->lensParameters);
        EXPECT_EQ(readBytes(job.directory / "qov.spc"), job.calibration);
        EXPECT_EQ(readBytes(job.directory / "lensdata.dat"), Bytes(lens, lens + 36));
        if (job.layout == CALCUT_LAYOUT_KORVELINE) {
            EXPECT_EQ(readBytes(job.directory / "signature.bin"), job.signature);
        }
    }
}

TEST(Threads, ReadWhileAHandlerIsRegistered) {
    const Bytes data = calibration(1);
    const Record expected = fixtures::read(data);
    vantric_clearCalibrationHandlers();
    const float* directions = expected->directions;
    const std::size_t floats = 3 * pixelsOf(*expected);
    std::atomic<int> failures = 0;
    std::atomic<int> registered = 0;
    together([&](std::size_t i) {
        if (i == 0) {
            VantricCalibrationHandler handler = {};
            handler.supports = [](const std::uint8_t*, std::size_t) { return 0; };
            handler.getCalibrationType = [] { return std::uint32_t{99}; };
            registered += vantric_registerCalibrationHandler(&handler);
            registered += vantric_registerCalibrationHandler(&handler);  // known already
            return;
        }
        const Record record = fixtures::read(data);
        failures += record == nullptr ||
                    vantric_getCalibrationType(data.data(), data.size()) != 3 ||
                    !std::equal(directions, directions + floats, record->directions) ||
                    vantric_readCustomFields(data.data(), data.size(), record.get()) != ok;
        const Record copy(vantric_copyCalibration(expected.get()));
        failures += copy->straylightPointCount != expected->straylightPointCount;
    });
    EXPECT_EQ(failures, 0);
    EXPECT_EQ(registered, rounds);
}

}  // namespace
