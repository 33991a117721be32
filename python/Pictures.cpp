// What calcut.plot needs of the library and the command beside the arrays: words and curves.
#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>
#include <pybind11/stl.h>

#include "calibration/owners.h"
#include "python/Calibration.h"
#include "tools/compare/Rendering.h"
#include "tools/module/Tree.h"

namespace calcut::python {

namespace {

namespace py = pybind11;

using Floats = py::array_t<float, py::array::c_style | py::array::forcecast>;

std::string treeJson(const Calibration& of) {
    return text::jsonText(module::inspectTree(of.about(), ""));
}

std::string compareJson(const Calibration& a, const Calibration& b,
                        std::optional<double> tolerance) {
    if (!a.about().record || !b.about().record) {
        throw py::value_error("one of them holds no calibration that reads");
    }
    compare::Compared what;
    if (tolerance) {
        what.tolerances.absolute[""] = *tolerance;
    }
    return text::jsonText(compare::treeOf({a.about(), b.about(), what.tolerances}, what));
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
    module.def("tree_json", treeJson, py::arg("calibration"));
    module.def("compare_json", compareJson, py::arg("a"), py::arg("b"),
               py::arg("tolerance") = py::none());
    module.def("interpolate", interpolate, py::arg("x"), py::arg("y"), py::arg("at"),
               "float32: the shape-preserving curve through x (ascending) and y; NaN outside.");
}

}  // namespace calcut::python
