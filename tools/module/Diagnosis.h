// What a dump holds and the first thing that is wrong with it: one look at a file that every
// subcommand shares, so that none of them can disagree with another. Nothing is parsed here: the
// library's own readers tell what they met.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <utility>
#include <vector>

#include "calibration/owners.h"
#include "calibration/packed/Handler.h"
#include "cutter/imageRecord.h"
#include "tools/files/Inputs.h"
#include "tools/module/Findings.h"

namespace calcut::module {

/// Id of a block of frequency k; block is an RX_FREQUENCY_ number.
constexpr std::uint32_t frequencyBlock(unsigned k, std::uint32_t block) {
    return RX_BLOCK_FIRST_FREQUENCY + RX_BLOCKS_PER_FREQUENCY * k + block;
}

struct Diagnosis {
    files::ByteView file;
    Layout layout = Layout::Unknown;
    image::Record image;  ///< not set for bare calibrations and unknown files
    /// The payload as a cut decodes it (with a signature area where there is one), or the whole of
    /// a bare calibration; what of it lies inside the file when not all does.
    files::ByteView payload;
    std::uint64_t payloadOffset = 0;
    std::uint64_t signatureAreaSize = 0;          ///< at the end of payload, 0 without one
    std::optional<std::uint8_t> signatureLength;  ///< as stored, also when impossible

    std::optional<RXHeader> header;
    /// Offsets count from the start of the file here. Of those behind a fault only the first
    /// hundreds.
    std::vector<vantric::BlockSighting> blocks;
    std::optional<std::uint64_t> endMarker;  ///< offset in the file
    /// Status of the read; empty when the payload never came to the reader.
    std::optional<std::uint32_t> status;
    std::optional<std::uint32_t> failedBlockId;
    vantric::RecordOwner record;  ///< as far as it was filled; may be null
    /// Of copying the custom blocks into the record, once everything else was read.
    std::uint32_t customStatus = VANTRIC_OK;

    std::vector<Finding> faults;  ///< the first is what a cut is refused for
    std::vector<Finding> warnings;

    /// Whether everything in it reads, so that there is a record; for bare calibrations too.
    [[nodiscard]] bool intact() const { return faults.empty(); }
    /// Whether a cut of this file returns 0 (given a directory that takes files).
    [[nodiscard]] bool cuttable() const { return intact() && layout.image != nullptr; }
    /// The block with that id that was decoded into the record, or null.
    [[nodiscard]] const vantric::BlockSighting* readBlock(std::uint32_t id) const;
    [[nodiscard]] bool wasRead(std::uint32_t id) const { return readBlock(id) != nullptr; }
    /// The mask of the record; empty where there is none.
    [[nodiscard]] files::ByteView mask() const;
    /// Bytes behind the end marker, the signature area not counted.
    [[nodiscard]] std::uint64_t trailingBytes() const;
};

/// Why a cut of this file is refused: the first fault, or that there is no image around a bare
/// calibration; nothing when it is not.
std::optional<Finding> whyNotCut(const Diagnosis& diagnosis);

/// Looks at a file. Views of the result point into it. wanted decides how much of the record is
/// filled; faults and warnings are the same for either.
Diagnosis diagnose(files::ByteView file, const Layout& layout, vantric::Wanted wanted);

/// A file and what it holds; the diagnosis points into the bytes.
struct Module {
    /// Takes the layout that the first bytes name where none is given.
    Module(std::vector<std::uint8_t> file, const std::optional<Layout>& layout,
           vantric::Wanted wanted)
        : bytes(std::move(file)),
          diagnosis(diagnose(bytes, layout.value_or(classify(bytes)), wanted)) {}
    Module(const Module&) = delete;
    Module& operator=(const Module&) = delete;
    ~Module() = default;

    /// Adds the warnings about the per-pixel tables, where everything was wanted.
    void lookAtTables() {
        for (Finding& warning : tableWarnings(diagnosis)) {
            diagnosis.warnings.push_back(std::move(warning));
        }
    }

    const std::vector<std::uint8_t> bytes;
    Diagnosis diagnosis;
};

/// What happens to a file with faults.
enum class Faults : std::uint8_t {
    refused,
    /// A fault of the image alone (a wrong CRC-32, say) does not keep the calibration from sight;
    /// it is told as a warning.
    toleratedInImage,
    tolerated,  ///< whatever reads is let through, as long as there is a record; each is told
    untold      ///< every file is let through; the caller tells what is wrong with it
};

/// Loads a file and reads everything in it. Throws Refused when the input has a refusal, the file
/// does not load, has faults that are refused, or no record.
std::unique_ptr<Module> loadModule(const files::Input& input, const Reading& reading,
                                   Faults faults);

}  // namespace calcut::module
