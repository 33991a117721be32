// A module as subcommands take it in: its bytes and what they hold.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "tools/module/Diagnosis.h"
#include "tools/module/Layout.h"

namespace calcut::module {

/// The diagnosis points into the bytes.
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
    tolerated  ///< whatever reads is let through, as long as there is a record; each is told
};

/// Loads a file and reads everything in it. Throws Refused when it has faults that are refused, or
/// no record.
std::unique_ptr<Module> loadModule(const std::string& path, const Reading& reading, Faults faults);

}  // namespace calcut::module
