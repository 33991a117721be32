#include "tools/export/Export.h"

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <functional>
#include <system_error>
#include <vector>

#include <fmt/format.h>

#include "tools/commands.h"
#include "tools/compare/LoadedModule.h"
#include "tools/dump/Tables.h"
#include "tools/export/LensFiles.h"
#include "tools/export/TableFiles.h"
#include "tools/terminal/Escape.h"
#include "tools/terminal/OutputFile.h"
#include "tools/terminal/Terminal.h"

namespace calcut::tools {

namespace {

/// A file to be; its text is made when its turn comes, for a large module's files together would
/// take much memory.
struct ExportFile {
    std::string name;
    std::function<std::string()> text;
};

std::vector<ExportFile> tableFiles(const Diagnosis& module, ExportFormat format) {
    std::vector<Table> tables = tablesOf(module);
    const std::vector<Table> custom = customTablesOf(module);
    tables.insert(tables.end(), custom.begin(), custom.end());
    std::vector<ExportFile> files;
    for (const Table& table : tables) {
        if (format == ExportFormat::Npy) {
            files.push_back({table.name + ".npy", [table] { return npyText(table); }});
            continue;
        }
        const bool csv = format == ExportFormat::Csv;
        for (unsigned channel = 0; channel < table.channels; ++channel) {
            const std::string part = channelName(table, channel);
            files.push_back(
                {table.name + (part.empty() ? "" : "_") + part + (csv ? ".csv" : ".pgm"),
                 [table, channel, csv] {
                     return csv ? csvText(table, channel) : pgmText(table, channel);
                 }});
        }
    }
    return files;
}

std::vector<ExportFile> filesOf(const Diagnosis& module, const ExportOptions& options) {
    const LensFile lens{options.input, module};
    switch (options.format) {
        case ExportFormat::OpencvYaml:
            return {{"opencv_camera.yaml", [lens] { return opencvText(lens); }}};
        case ExportFormat::RosYaml:
            return {{"camera_info.yaml", [lens] { return rosText(lens); }}};
        case ExportFormat::Json:
            return {{"lens.json", [lens] { return lensJsonText(lens); }}};
        default:
            return tableFiles(module, options.format);
    }
}

/// False, with a printed error, when the directory is not there and cannot be made.
bool makeDirectory(const std::string& path) {
    constexpr mode_t everyone = 0777;
    struct stat status {};
    const bool exists = stat(path.c_str(), &status) == 0;
    int error = exists && !S_ISDIR(status.st_mode) ? ENOTDIR : 0;
    if (!exists && mkdir(path.c_str(), everyone) != 0) {
        error = errno;
    }
    if (error != 0) {
        printError(path, std::generic_category().message(error));
    }
    return error == 0;
}

/// Whether all of them may be written; the first that may not is told.
bool mayWrite(const std::vector<ExportFile>& files, const ExportOptions& options) {
    return std::ranges::all_of(files, [&options](const ExportFile& file) {
        const std::string path = options.directory + "/" + file.name;
        std::string why = whyNotWritable(path, {options.input});
        if (why.empty() && !options.force && identityOf(path)) {
            why = "exists; --force replaces it";
        }
        if (!why.empty()) {
            printError(path, why);
        }
        return why.empty();
    });
}

bool writeFile(const ExportFile& file, const std::string& directory) {
    const std::string path = directory + "/" + file.name;
    const std::string text = file.text();
    if (!writeOutput(path, {reinterpret_cast<const std::uint8_t*>(text.data()), text.size()})) {
        return false;
    }
    print(fmt::format("wrote {}  {} bytes\n", escapePath(path), text.size()));
    return true;
}

bool writeFiles(const std::vector<ExportFile>& files, const std::string& directory) {
    const InterruptGuard guard;
    return std::ranges::all_of(files, [&directory](const ExportFile& file) {
        return !InterruptGuard::interrupted() && writeFile(file, directory);
    });
}

}  // namespace

int runExport(const ExportOptions& options) {
    const auto module = loadModule(options.input, options.layout, options.maxSize);
    if (!module) {
        return exitFailed;
    }
    const std::vector<ExportFile> files = filesOf(module->diagnosis, options);
    return makeDirectory(options.directory) && mayWrite(files, options) &&
                   writeFiles(files, options.directory)
               ? exitOk
               : exitFailed;
}

}  // namespace calcut::tools
