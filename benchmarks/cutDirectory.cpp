#include "cutDirectory.h"

#include <filesystem>
#include <fstream>
#include <system_error>

#include <unistd.h>

namespace calcut::bench {

namespace {

constexpr std::size_t customBlockBytes = 40;

int directories = 0;

}  // namespace

writer::Bytes standardCalibration(const writer::CalibrationOptions& options, unsigned valueBits) {
    writer::Calibration calibration = writer::makeCalibration(options);
    calibration.custom.assign(2, std::vector<std::uint8_t>(customBlockBytes, 0x5A));
    writer::PackOptions pack;
    pack.valueBits = valueBits;
    return writer::packCalibration(calibration, pack);
}

writer::Bytes makeStandardDump(std::uint64_t seed) {
    writer::CalibrationOptions options;
    options.seed = seed;
    return writer::makeV7Image(standardCalibration(options, 12));
}

CutDirectory::CutDirectory(const writer::Bytes& dump) {
    namespace fs = std::filesystem;
    const fs::path parent =
        fs::exists("/dev/shm") ? fs::path("/dev/shm") : fs::temp_directory_path();
    path_ = parent / ("calcut-benchmark-" + std::to_string(::getpid()) + "-" +
                      std::to_string(++directories));
    fs::create_directories(path_);
    std::ofstream(dumpFile(), std::ios::binary)
        .write(reinterpret_cast<const char*>(dump.data()),
               static_cast<std::streamsize>(dump.size()));
}

CutDirectory::~CutDirectory() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
}

}  // namespace calcut::bench
