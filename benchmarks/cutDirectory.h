#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>

#include "writer/writer.h"

namespace calcut::bench {

/// The calibration of the whole reads. valueBits 0: plain float tables.
writer::Bytes standardCalibration(const writer::CalibrationOptions& options, unsigned valueBits);

/// A v7 dump of it.
writer::Bytes makeStandardDump(std::uint64_t seed);

/// A directory of its own in a memory file system, with a dump in it; gone with the object.
class CutDirectory {
  public:
    explicit CutDirectory(const writer::Bytes& dump);
    CutDirectory(const CutDirectory&) = delete;
    CutDirectory& operator=(const CutDirectory&) = delete;
    ~CutDirectory();

    [[nodiscard]] std::string dumpFile() const { return (path_ / "dump.bin").string(); }
    [[nodiscard]] std::string directory() const { return path_.string(); }

  private:
    std::filesystem::path path_;
};

}  // namespace calcut::bench
