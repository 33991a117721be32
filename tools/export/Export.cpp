#include "tools/export/Export.h"

#include <algorithm>
#include <filesystem>
#include <map>
#include <system_error>

#include <fmt/format.h>

#include "tools/commands.h"
#include "tools/files/Inputs.h"
#include "tools/files/OutputFile.h"
#include "tools/module/Module.h"
#include "tools/text/Escape.h"
#include "tools/text/Terminal.h"

namespace calcut::exporting {

namespace {

void makeDirectory(const std::string& path) {
    std::error_code error;
    if (!std::filesystem::exists(path, error)) {
        std::filesystem::create_directory(path, error);
    } else if (!std::filesystem::is_directory(path, error)) {
        error = std::make_error_code(std::errc::not_a_directory);
    }
    if (error) {
        throw text::Refused(path, error.message());
    }
}

/// False when it was interrupted.
bool exportOne(const std::string& input, const std::string& directory,
               const ExportOptions& options) {
    const auto module =
        module::loadModule(input, options.reading,
                           options.damaged ? module::Faults::tolerated : module::Faults::refused);
    if (!module->diagnosis.wasRead(RX_BLOCK_LENS_PARAMETERS)) {
        throw text::Refused(input, "has no lens parameters that read");
    }
    makeDirectory(directory);
    const std::vector<File> files = filesOf(*options.format, {module->diagnosis, input});
    for (const File& file : files) {
        files::checkWritable(directory + "/" + file.name, {input}, options.force);
    }
    return std::ranges::all_of(files, [&](const File& file) {
        const std::string path = directory + "/" + file.name;
        const std::string text = file.text();
        if (text::InterruptGuard::interrupted()) {
            return false;
        }
        files::writeOutput(path, text);
        text::print(fmt::format("wrote {}  {} bytes\n", text::escapePath(path), text.size()));
        return true;
    });
}

/// Each dump goes into a directory of its name without the extension; none may share it.
int exportMany(const ExportOptions& options) {
    makeDirectory(options.out);
    std::map<std::string, std::string> taken;
    bool good = true;
    files::InputSources sources;
    sources.paths = options.paths;
    sources.leftOut = {options.out};
    for (const files::Input& input : files::gatherInputs(sources)) {
        try {
            const std::string stem = std::filesystem::path(input.path).stem();
            if (input.refusal) {
                throw text::Refused(input.path, *input.refusal);
            }
            const auto [earlier, isNew] =
                taken.emplace(input.path == "-" ? "stdin" : stem, input.path);
            if (!isNew) {
                throw text::Refused(input.path, "has the same name as {}; export it elsewhere",
                                    text::escapePath(earlier->second));
            }
            if (!exportOne(input.path, options.out + "/" + earlier->first, options)) {
                return exitFailed;
            }
        } catch (const text::Refused& refused) {
            text::printError(refused.subject(), refused.what());
            good = false;
        }
    }
    return good ? exitOk : exitFailed;
}

}  // namespace

std::vector<File> filesOf(const Format& format, const Subject& subject) {
    std::vector<File> files = format.files(subject);
    if (format.beforeComments != nullptr && !subject.module.intact()) {
        const std::string comment =
            fmt::format("# damaged dump: {}\n", module::describe(subject.module.faults.front()));
        const std::size_t at = std::string_view(format.beforeComments).size();
        for (File& file : files) {
            file.text = [text = std::move(file.text), comment, at] {
                return text().insert(at, comment);
            };
        }
    }
    return files;
}

int runExport(const ExportOptions& options) {
    const text::InterruptGuard guard;
    if (!options.out.empty()) {
        return exportMany(options);
    }
    return exportOne(options.paths.at(0), options.paths.at(1), options) ? exitOk : exitFailed;
}

}  // namespace calcut::exporting
