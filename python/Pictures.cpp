// What calcut.plot needs of the library and the command beside the arrays: words and curves.
#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>
#include <pybind11/stl.h>

#include "calibration/owners.h"
#include "python/Calibration.h"
#include "tools/compare/Comparison.h"
#include "tools/module/Tree.h"
#include "tools/text/Terminal.h"

namespace calcut::python {

namespace {

namespace py = pybind11;

using Floats = py::array_t<float, py::array::c_style | py::array::forcecast>;

/// Takes "-" for standard input, as the command does.
py::bytes load(const py::object& path, const files::Intake& intake) {
    const auto name = py::module_::import("os").attr("fsencode")(path).cast<std::string>();
    try {
        const std::vector<std::uint8_t> bytes = files::loadDump(name, intake);
        return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
    } catch (const text::Refused& refused) {
        PyErr_SetString(PyExc_OSError, refused.what());
        throw py::error_already_set();
    }
}

std::string treeJson(const Calibration& of) {
    return text::jsonText(module::inspectTree(of.about(), ""));
}

std::string compareJson(const Calibration& a, const Calibration& b,
                        std::optional<double> tolerance) {
    if (!a.about().record || !b.about().record) {
        throw py::value_error("one of them holds no calibration that reads");
    }
    compare::Tolerances tolerances;
    if (tolerance) {
        tolerances.absolute[""] = *tolerance;
    }
    return text::jsonText(compare::treeOf({a.about(), b.about(), tolerances}, {}));
}

Floats interpolate(const Floats& x, const Floats& y, const Floats& at) {
    if (x.ndim() != 1 || x.size() != y.size() || at.ndim() != 1) {
        throw py::value_error("x and y are rows of equal length, at is a row");
    }
    const vantric::PolyOwner curve(
        vantric_createPolyHandle(x.data(), y.data(), static_cast<std::uint32_t>(x.size())));
    Floats values(at.size());
    for (py::ssize_t i = 0; i < at.size(); ++i) {
        values.mutable_data()[i] = vantric_cinterpol(curve.get(), at.data()[i]);
    }
    return values;
}

}  // namespace

void bindPictures(py::module_& module) {
    module.def(
        "load",
        [](const py::object& path, std::uint64_t maxSize, std::uint64_t skip, std::size_t swap) {
            return load(path, {maxSize, skip, swap});
        },
        py::arg("path"), py::arg("max_size"), py::arg("skip"), py::arg("swap"));
    module.def("tree_json", treeJson, py::arg("calibration"));
    module.def("compare_json", compareJson, py::arg("a"), py::arg("b"),
               py::arg("tolerance") = py::none());
    module.def("interpolate", interpolate, py::arg("x"), py::arg("y"), py::arg("at"),
               "float32: the shape-preserving curve through x (ascending) and y; NaN outside.");
}

}  // namespace calcut::python
