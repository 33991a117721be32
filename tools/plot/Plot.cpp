#include "tools/plot/Plot.h"

#include <dlfcn.h>

#include <filesystem>
#include <string_view>

#include "tools/commands.h"
#include "tools/files/OutputFile.h"
#include "tools/module/Module.h"
#include "tools/text/Terminal.h"

namespace calcut::plot {

namespace {

/// What calcut-plot.so has, which lies beside the command or in ../libexec/calcut.
const Drawing& loadDrawing() {
    std::error_code error;
    const std::string folder =
        std::filesystem::read_symlink("/proc/self/exe", error).parent_path().string();
    for (const std::string& path :
         {folder + "/calcut-plot.so", folder + "/../libexec/calcut/calcut-plot.so"}) {
        if (!std::filesystem::exists(path, error)) {
            continue;
        }
        void* part = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
        const auto* drawing =
            static_cast<const Drawing*>(part == nullptr ? nullptr : dlsym(part, "calcutDrawing"));
        if (drawing == nullptr || std::string_view(drawing->version) != CALCUT_VERSION) {
            throw text::Refused(
                "", drawing == nullptr ? dlerror() : path + " is of another version of calcut");
        }
        return *drawing;
    }
    throw text::Refused("", "calcut-plot is not installed: this build was made without Cairo");
}

}  // namespace

bool isPictureName(const std::string& name) {
    return name == "-" || name.ends_with(".png") || name.ends_with(".svg");
}

int runPlot(const PlotOptions& options) {
    const Drawing& drawing = loadDrawing();
    files::checkWritable(options.output, {options.input});
    const auto module = module::loadModule(options.input, options.layout, options.maxSize);
    files::writePicture(options.output, drawing.sheet(module->diagnosis, options.input,
                                                      options.sharedScale, options.output));
    return exitOk;
}

compare::DrawDifferences loadDrawDifferences() {
    return loadDrawing().differences;
}

}  // namespace calcut::plot
