// Cuts one dump through the library's entry points and finds out what came of it.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "calcut/cutter.h"
#include "DumpFile.h"

namespace calcut::tools {

/// Names of the output files.
inline constexpr const char* calibrationFile = "qov.spc";
inline constexpr const char* lensFile = "lensdata.dat";
inline constexpr const char* signatureFile = "signature.bin";

struct WrittenFile {
    std::string name;
    std::uint64_t size = 0;
};

struct CutResult {
    Layout layout = Layout::Unknown;
    std::string reason;  ///< why the dump was not cut; empty when it was
    std::vector<WrittenFile> files;
    std::uint16_t maskedPixels = 0;
    /// cx, cy, fx, fy, p1, p2, k1, k2, k3, reserved
    std::array<float, CALCUT_LENS_PARAMETER_COUNT> lens{};

    [[nodiscard]] bool cut() const { return reason.empty(); }
};

/// Why nothing can be written into the directory; empty when nothing stands against it.
std::string whyNoOutput(const std::string& directory);

/// Cuts the dump into the directory, by the given layout or else by its magic. The library may end
/// the process, so call this in a worker.
CutResult cutDump(const std::string& dump, std::optional<Layout> layout,
                  const std::string& directory);

/// The same into a directory that is made for this dump: the files come into being in temporary, a
/// sibling of directory, which takes its name once everything is there and is removed otherwise. An
/// earlier cut's directory is replaced, one that holds anything else is left alone and a failure.
CutResult cutDumpIntoNew(const std::string& dump, std::optional<Layout> layout,
                         const std::string& directory, const std::string& temporary);

/// To take a result from one process to another.
std::string serialise(const CutResult& result);
CutResult deserialise(const std::string& bytes);

}  // namespace calcut::tools
