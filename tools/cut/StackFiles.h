// From a dump to the files of the stack, through the library's own cutters, and what came of it.
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "calcut/cutter.h"
#include "tools/cut/Cut.h"
#include "tools/module/Diagnosis.h"
#include "tools/module/Names.h"
#include "tools/text/Terminal.h"

namespace calcut::cut {

/// The files of a cut.
inline constexpr std::array<const char*, 3> stackFiles = {CALCUT_CALIBRATION_FILE, CALCUT_LENS_FILE,
                                                          CALCUT_SIGNATURE_FILE};

/// In the order of the summary.
enum class Outcome : std::uint8_t {
    Cut,
    Kept,      ///< its folder held a whole cut already
    Repaired,  ///< its folder held a cut whose files had changed
    Equal,     ///< its folder holds its cut, byte for byte
    Failed,
    NotReached
};
inline constexpr std::array<const char*, 6> outcomeNames = {"cut",   "kept",   "repaired",
                                                            "equal", "failed", "not reached"};
inline const char* outcomeName(Outcome outcome) {
    return outcomeNames[static_cast<std::size_t>(outcome)];
}

/// What came of one dump, for people and for the report.
struct CutResult {
    std::string dump;    ///< path as given
    std::string source;  ///< its absolute path; only of one among many
    std::string folder;  ///< where its files are, or would have gone
    Outcome outcome = Outcome::NotReached;
    std::string reason;                    ///< why nothing good came of it, one line
    std::optional<module::Finding> fault;  ///< when the dump is to blame
    std::vector<module::Finding> warnings;
    bool earlierCut = false;  ///< it failed, and the folder still holds an earlier cut's files

    std::uint64_t size = 0;
    std::optional<std::uint32_t> crc;  ///< of the whole dump, once it was loaded
    module::Layout layout = module::Layout::Unknown;

    // Of a dump that can be cut.
    std::array<std::string, 3> texts;
    std::vector<std::uint8_t> idBytes;
    std::array<float, VANTRIC_LENS_PARAMETERS> lens{};
    std::int64_t maskedPixels = 0;

    [[nodiscard]] bool good() const {
        return outcome != Outcome::NotReached && outcome != Outcome::Failed;
    }
};

/// "0x1234abcd"
std::string crcText(std::uint32_t crc);

/// A file as it has to be.
struct StackFile {
    const char* name;
    files::ByteView bytes;
    std::uint32_t crc;
};

/// A dump in memory that can be cut.
struct TakenDump {
    std::unique_ptr<module::Module> module;
    std::vector<StackFile> files;  ///< views of the module
};

/// Throws bad_alloc where little memory is left. The calibration library and that of JSON end the
/// process when a small allocation fails; with so much room, only large ones do, and those throw.
void requireRoom();

/// Loads a dump and looks at it, and stores what was found out in result. Throws Refused when it
/// cannot be cut; result has the fault when there is one.
TakenDump takeDump(const std::string& path, const CutOptions& options, CutResult& result);

/// A file that is not as it should be: "differs at byte 17 (0x11)", "is missing", ...
struct Difference {
    const char* name;
    std::string what;
};

/// How a directory differs from what it should hold. Compares the files of a cut byte for byte;
/// files that have nothing to do with a cut are not looked at. Opens nothing that could block.
std::vector<Difference> differences(const std::vector<StackFile>& files,
                                    const std::string& directory);

/// Writes the files into an empty directory and reads them back. Throws Refused.
void writeStackFiles(const TakenDump& taken, const std::string& directory, const CutResult& result);

}  // namespace calcut::cut
