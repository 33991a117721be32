// calcut export: a module's tables and lens as files that other tools read.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "tools/module/Diagnosis.h"

namespace calcut::exporting {

/// A file to be; its text is made when its turn comes, for a large module's files together would
/// take much memory.
struct File {
    std::string name;
    std::function<std::string()> text;
};

/// A module with a record and a lens, and the path it came from. Both outlive the files.
struct Subject {
    const module::Diagnosis& module;
    const std::string& source;
};

// Formats of the lens alone.
std::vector<File> opencvFiles(const Subject& subject);
std::vector<File> rosFiles(const Subject& subject);
std::vector<File> jsonFiles(const Subject& subject);

struct Format {
    const char* word;  ///< as --as takes it
    const char* help;
    std::vector<File> (*files)(const Subject& subject);
    /// What a comment about damage comes behind; null where the format has no comments.
    const char* beforeComments;
};

/// Of every table, then of the lens.
extern const std::span<const Format> formats;

/// The files of a module, with a comment about the first fault in those that have comments.
std::vector<File> filesOf(const Format& format, const Subject& subject);

struct ExportOptions {
    /// A dump or bare calibration ("-" for standard input) and a directory, which is made when only
    /// its last step is not there; with out dumps and folders of them.
    std::vector<std::string> paths;
    std::string out;  ///< a directory for each dump comes under this one
    const Format* format = nullptr;
    module::Reading reading;
    bool force = false;    ///< replace files that exist
    bool damaged = false;  ///< write what reads of a dump with faults
};

/// What is wrong with a combination of options, or nothing.
std::optional<std::string> usageFault(const ExportOptions& options);

/// Writes the files. Returns the exit status.
int runExport(const ExportOptions& options);

}  // namespace calcut::exporting
