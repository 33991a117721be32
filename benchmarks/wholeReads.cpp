#include <array>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <memory>
#include <stdexcept>

#include <unistd.h>
#ifdef __GLIBC__
#include <malloc.h>
#endif

#include "calcut/cutter.h"
#include "calcut/vantric.h"
#include "calibration/calibration.h"
#include "cutDirectory.h"
#include "keep.h"
#include "plain/plain.h"
#include "work.h"
#include "writer/writer.h"

namespace calcut::bench {

namespace {

constexpr std::size_t pixels = std::size_t{224} * 172;
constexpr std::size_t frequencies = 3;

void check(bool done) {
    if (!done) {
        throw std::runtime_error("the standard work could not be done");
    }
}

// Whether large buffers are used again (a host that reads more than once) or come fresh from the
// system, page by page, as in a process that has just started.
enum class Memory { Kept, Fresh };

void choose([[maybe_unused]] Memory memory) {
#ifdef __GLIBC__
    constexpr int smallestFresh = 128 * 1024;
    constexpr int never = 32 * 1024 * 1024;
    const int threshold = memory == Memory::Fresh ? smallestFresh : never;
    mallopt(M_MMAP_THRESHOLD, threshold);
    mallopt(M_TRIM_THRESHOLD, threshold);
#endif
}

// The same work with each kind of memory, which makes no difference to the instructions of it.
Work with(Memory memory, Work work) {
    work.repetitions = memory == Memory::Kept ? work.repetitions : 0;
    for (Run* run : {&work.plain, &work.fast, &work.bound}) {
        *run = [memory, inner = *run] {
            choose(memory);
            inner();
        };
    }
    return work;
}

// A record whose buffers of a read are written once; the input is read once.
void touchRecord(const writer::Bytes& input) {
    VantricCalibration* record = vantric::allocateCalibration(pixels);
    record->directions = static_cast<float*>(std::malloc(pixels * 3 * sizeof(float)));
    record->psf = static_cast<float*>(std::malloc(pixels * sizeof(float)));
    const auto write = [](void* memory, std::size_t size) {
        std::memset(memory, 1, size);
        keep(memory);
    };
    write(record->directions, pixels * 3 * sizeof(float));
    write(record->psf, pixels * sizeof(float));
    write(record->pixelMask, pixels);
    std::size_t read = 0;
    const auto fill = [&](float* table) {
        const std::size_t part = std::min(input.size() - read, pixels * sizeof(float));
        std::memcpy(table, input.data() + read, part);
        write(reinterpret_cast<char*>(table) + part, pixels * sizeof(float) - part);
        read += part;
    };
    fill(record->pixelValues);
    for (std::size_t k = 0; k < frequencies; ++k) {
        fill(record->frequencies[k].pixelTable);
    }
    clobberMemory();
    vantric_freeCalibration(record);
}

// Both ways give the same record, or there would be nothing to compare.
void checkSameReads(const writer::Bytes& input) {
    VantricCalibration* plainOne = nullptr;
    VantricCalibration* fast = nullptr;
    check(plain::readCalibration(input.data(), input.size(), &plainOne) == VANTRIC_OK &&
          vantric_readCalibration(input.data(), input.size(), &fast) == VANTRIC_OK);
    const auto same = [](const auto* a, const auto* b, std::size_t count) {
        return std::memcmp(a, b, count * sizeof *a) == 0;
    };
    check(same(plainOne->pixelMask, fast->pixelMask, pixels) &&
          same(plainOne->pixelValues, fast->pixelValues, pixels) &&
          same(plainOne->directions, fast->directions, pixels * 3) &&
          same(plainOne->psf, fast->psf, pixels));
    for (std::size_t k = 0; k < frequencies; ++k) {
        check(same(plainOne->frequencies[k].pixelTable, fast->frequencies[k].pixelTable, pixels));
    }
    vantric_freeCalibration(plainOne);
    vantric_freeCalibration(fast);
}

void readOnce(const writer::Bytes& input) {
    VantricCalibration* record = nullptr;
    check(vantric_readCalibration(input.data(), input.size(), &record) == VANTRIC_OK);
    vantric_freeCalibration(record);
}

writer::CalibrationOptions options(float exponent) {
    writer::CalibrationOptions result;
    result.straylightExponent = exponent;
    return result;
}

Work wholeRead(const char* name, float exponent, unsigned valueBits, double target) {
    const auto input =
        std::make_shared<const writer::Bytes>(standardCalibration(options(exponent), valueBits));
    checkSameReads(*input);
    return {name,
            [=] {
                VantricCalibration* record = nullptr;
                check(plain::readCalibration(input->data(), input->size(), &record) == VANTRIC_OK);
                vantric_freeCalibration(record);
            },
            [=] { readOnce(*input); },
            target,
            {},
            {},
            0.0,
            [=] { touchRecord(*input); }};
}

void copyFile(const std::string& from, const std::string& to) {
    std::ifstream input(from, std::ios::binary | std::ios::ate);
    std::vector<char> content(static_cast<std::size_t>(input.tellg()));
    input.seekg(0);
    input.read(content.data(), static_cast<std::streamsize>(content.size()));
    std::ofstream(to, std::ios::binary)
        .write(content.data(), static_cast<std::streamsize>(content.size()));
}

Work wholeCut(const std::string& name, double target, const writer::Bytes& calibration) {
    const auto payload = std::make_shared<const writer::Bytes>(calibration);
    const auto files = std::make_shared<const CutDirectory>(writer::makeV7Image(*payload));
    return {name,
            [=] {
                EEPROMMetaInformation meta;
                check(plain::cutV7(files->dumpFile(), files->directory(), meta));
            },
            [=] {
                EEPROMMetaInformation meta;
                check(cutEEPROMContent(CALCUT_LAYOUT_V7, files->dumpFile().c_str(),
                                       files->directory().c_str(), &meta) == 0);
            },
            target,
            {},
            {},
            0.0,
            [=] {
                copyFile(files->dumpFile(), files->directory() + "/copy");
                touchRecord(*payload);
            }};
}

}  // namespace

std::vector<Work> readingWork() {
    const writer::Bytes standard = standardCalibration(options(2.0F), 12);
    return {
        with(Memory::Kept, wholeRead("readCalibration, 12 bits, exponent 2.0", 2.0F, 12, 20.0)),
        with(Memory::Kept, wholeRead("readCalibration, 12 bits, exponent 2.1", 2.1F, 12, 20.0)),
        with(Memory::Kept, wholeRead("readCalibration, float tables", 2.0F, 0, 20.0)),
        with(Memory::Fresh, wholeRead("readCalibration, 12 bits, fresh memory", 2.0F, 12, 14.5)),
        with(Memory::Kept, wholeCut("cutEEPROMContent, v7 dump", 110.0, standard)),
        with(Memory::Fresh, wholeCut("cutEEPROMContent, v7 dump, fresh memory", 85.0, standard))};
}

std::vector<Work> scalingWork() {
    constexpr std::array<std::array<std::uint16_t, 2>, 6> sizes = {
        {{16, 12}, {64, 48}, {224, 172}, {640, 480}, {1280, 960}, {2048, 1536}}};
    std::vector<Work> all;
    for (const auto [columns, rows] : sizes) {
        writer::CalibrationOptions options;
        options.columns = columns;
        options.rows = rows;
        const writer::Bytes calibration = standardCalibration(options, 12);
        const std::string size = std::to_string(columns) + " x " + std::to_string(rows);
        const auto input = std::make_shared<const writer::Bytes>(calibration);
        all.push_back({"a read of " + size, {}, [=] { readOnce(*input); }});
        all.push_back(wholeCut("a cut of " + size, 0.0, calibration));
        for (Work& work : all) {
            work.repetitions = 1;
        }
    }
    return all;
}

}  // namespace calcut::bench
