// The module calcut._calcut; calcut/__init__.py is what people import.
#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>
#include <pybind11/stl.h>

#include "python/Calibration.h"
#include "python/Input.h"
#include "tools/cut/Folder.h"
#include "tools/module/Diagnosis.h"
#include "tools/module/Findings.h"
#include "tools/module/TableMeasures.h"
#include "tools/module/Tree.h"
#include "tools/text/Escape.h"
#include "tools/text/Terminal.h"

namespace calcut::python {

namespace {

std::string inspectJson(const py::object& source, const std::string& layout) {
    Input input(source);
    const std::optional<module::Layout> wanted = layoutOf(layout);
    std::string text;
    {
        const py::gil_scoped_release others;
        input.load();
        module::Module dump(std::move(input.bytes()), wanted, vantric::Wanted::everything);
        dump.lookAtTables();
        text = text::jsonText(module::inspectTree(dump.diagnosis, input.name()));
    }
    input.raiseUnlessLoaded();
    return text;
}

std::string pathOrRaise(const py::object& source) {
    const std::optional<std::string> path = pathOf(source);
    if (!path) {
        throw py::type_error("cut takes the path of a dump and that of a directory");
    }
    return *path;
}

py::object cut(const py::object& dump, const py::object& directory, const std::string& layout,
               bool force) {
    cut::CutOptions options;
    options.paths = {pathOrRaise(dump), pathOrRaise(directory)};
    options.reading.layout = layoutOf(layout);
    cut::CutResult result;
    cut::TakenDump taken;
    try {
        const py::gil_scoped_release others;
        taken = cut::takeDump(options.paths[0], options, result);
        cut::cutInto(taken, options.paths[1], force, result);
    } catch (const text::Refused& refused) {
        if (result.fault) {
            raiseCalcutError(*result.fault, refused.subject());
        }
        raiseOsError(refused.subject(), refused.what());
    }
    py::dict files;
    for (const cut::StackFile& file : taken.files) {
        files[file.name] = file.bytes.size();
    }
    return typeNamed("Cut")(result.layout.name, files, result.maskedPixels,
                            toPython(result.warnings));
}

/// Pixels of the largest connected region of one value, and how far the farthest value is from the
/// median in robust deviations: the numbers that warnings go by.
py::tuple tableMeasures(const py::array_t<float, py::array::c_style | py::array::forcecast>& table,
                        const py::array_t<bool, py::array::c_style | py::array::forcecast>& valid) {
    if (table.ndim() != 2 || valid.size() != table.size()) {
        throw py::value_error("a table of two dimensions, and which of its pixels are valid");
    }
    const auto size = static_cast<std::size_t>(table.size());
    const auto* isValid = reinterpret_cast<const std::uint8_t*>(valid.data());
    const module::TableMeasures found = module::measure({table.data(), size}, {isValid, size},
                                                        static_cast<std::size_t>(table.shape(1)));
    return py::make_tuple(found.regionPixels, found.farthest);
}

/// A path, or text with paths in it, as nothing that steers a terminal.
std::string escapePath(const py::object& path) {
    return text::escapePath(py::module_::import("os").attr("fsencode")(path).cast<std::string>());
}

py::tuple layoutNames() {
    py::list names;
    for (const module::Layout& layout : module::knownLayouts()) {
        names.append(layout.name);
    }
    return names;
}

}  // namespace

}  // namespace calcut::python

PYBIND11_MODULE(_calcut, module) {
    using namespace calcut::python;
    namespace py = pybind11;
    // Exceptions tell Python what the command prints.
    calcut::text::setTerminal({calcut::text::ColourMode::Never, calcut::text::Verbosity::Quiet});
    bindCalibration(module);
    bindPictures(module);
    module.attr("__version__") = CALCUT_VERSION;
    module.attr("layout_names") = layoutNames();
    module.attr("warning_names") = py::tuple(py::cast(calcut::module::warningNames));
    module.def("escape_path", escapePath, py::arg("path"));
    module.def("read", calcut::python::read, py::arg("source"), py::arg("layout"),
               py::arg("strict"));
    module.def("inspect_json", inspectJson, py::arg("source"), py::arg("layout"));
    module.def("table_measures", tableMeasures, py::arg("table"), py::arg("valid"));
    module.def("cut", cut, py::arg("dump"), py::arg("directory"), py::arg("layout"),
               py::arg("force"));
}
