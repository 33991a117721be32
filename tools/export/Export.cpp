#include "tools/export/Export.h"

#include <map>

#include <fmt/format.h>

#include "tools/files/Inputs.h"
#include "tools/files/OutputFile.h"
#include "tools/text/Escape.h"
#include "tools/text/Terminal.h"

namespace calcut::exporting {

namespace {

void makeDirectory(const std::string& path) {
    if (const int error = files::makeDirectory(path)) {
        throw text::Refused(path, text::errnoText(error));
    }
}

void exportOne(const files::Input& input, const std::string& directory,
               const ExportOptions& options) {
    const auto module =
        module::loadModule(input, options.reading,
                           options.damaged ? module::Faults::tolerated : module::Faults::refused);
    if (!module->diagnosis.wasRead(RX_BLOCK_LENS_PARAMETERS)) {
        throw text::Refused(input.path, "has no lens parameters that read");
    }
    makeDirectory(directory);
    const std::vector<File> files = filesOf(*options.format, {module->diagnosis, input.path});
    for (const File& file : files) {
        files::checkWritable(directory + "/" + file.name, {input.path}, options.force);
    }
    for (const File& file : files) {
        const std::string path = directory + "/" + file.name;
        const std::string text = file.text();
        if (text::InterruptGuard::interrupted()) {
            return;
        }
        files::writeOutput(path, text);
        text::print(fmt::format("wrote {}  {} bytes\n", text::escapePath(path), text.size()));
    }
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

std::optional<std::string> usageFault(const ExportOptions& options) {
    const bool isForm = !options.out.empty() || options.paths.size() == 2;
    return isForm                     ? std::optional<std::string>()
           : options.paths.size() < 2 ? "needs a DUMP and a DIR"
                                      : "many dumps go into a directory that --out names";
}

int runExport(const ExportOptions& options) {
    const text::InterruptGuard guard;
    const bool many = !options.out.empty();
    if (many) {
        makeDirectory(options.out);
    }
    const std::vector<files::Input> inputs =
        many ? files::gatherInputs({.paths = options.paths, .leftOut = {options.out}})
             : std::vector<files::Input>{{options.paths.at(0)}};
    std::map<std::string, std::string> inputOf;
    const auto work = [&](const files::Input& input) {
        std::string directory = options.paths.back();
        if (many && !input.refusal) {
            // Each dump goes into a directory of its name; none may share it.
            directory = options.out + "/" + files::stemOf(input.path);
            const auto [earlier, isNew] = inputOf.emplace(directory, input.path);
            if (!isNew) {
                throw text::Refused(input.path, "has the same name as {}; export it elsewhere",
                                    text::escapePath(earlier->second));
            }
        }
        exportOne(input, directory, options);
    };
    const bool good = files::forEachInput(inputs, work) == 0;
    return good && !text::InterruptGuard::interrupted() ? exitOk : exitFailed;
}

}  // namespace calcut::exporting
