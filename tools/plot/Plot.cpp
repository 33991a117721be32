#include "tools/plot/Plot.h"

#include <dlfcn.h>

#include <cstring>
#include <filesystem>

#include "tools/commands.h"
#include "tools/compare/LoadedModule.h"
#include "tools/plot/Drawing.h"
#include "tools/terminal/OutputFile.h"
#include "tools/terminal/Terminal.h"

namespace calcut::tools {

namespace {

/// Loads calcut-plot.so, which lies beside the command or in ../libexec/calcut. Null, with a
/// printed error, when it cannot.
const Drawing* loadDrawing() {
    std::error_code error;
    const std::string folder =
        std::filesystem::read_symlink("/proc/self/exe", error).parent_path().string();
    for (const std::string& path :
         {folder + "/calcut-plot.so", folder + "/../libexec/calcut/calcut-plot.so"}) {
        if (!std::filesystem::exists(path, error)) {
            continue;
        }
        void* part = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
        const void* symbol = part == nullptr ? nullptr : dlsym(part, "calcutDrawing");
        if (symbol == nullptr) {
            printError("", dlerror());
            return nullptr;
        }
        const auto* drawing = static_cast<const Drawing*>(symbol);
        if (std::strcmp(drawing->version, CALCUT_VERSION) != 0) {
            printError(path, "belongs to another version of calcut");
            return nullptr;
        }
        return drawing;
    }
    printError("", "calcut-plot is not installed: this build was made without Cairo");
    return nullptr;
}

bool writePicture(const PlotOptions& options, const Drawing& drawing) {
    if (const std::string why = whyNotWritable(options.output, {options.input}); !why.empty()) {
        printError(options.output, why);
        return false;
    }
    const auto module = loadModule(options.input, options.layout, options.maxSize);
    if (!module) {
        return false;
    }
    const std::vector<std::uint8_t> picture =
        drawing.sheet(module->diagnosis, options.input, options.sharedScale, options.output);
    if (picture.empty()) {
        printError(options.output, "the picture could not be made (not enough memory?)");
        return false;
    }
    return writeOutput(options.output, picture);
}

}  // namespace

bool isPictureName(const std::string& name) {
    return name == "-" || name.ends_with(".png") || name.ends_with(".svg");
}

int runPlot(const PlotOptions& options) {
    const Drawing* drawing = loadDrawing();
    return drawing != nullptr && writePicture(options, *drawing) ? exitOk : exitFailed;
}

int runCompareAndDraw(const CompareOptions& options) {
    const Drawing* drawing = loadDrawing();
    return drawing == nullptr ? exitNotCompared : runCompare(options, drawing->differences);
}

}  // namespace calcut::tools
