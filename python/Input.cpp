#include "python/Input.h"

#include <algorithm>

#include "tools/module/Layout.h"
#include "tools/module/Names.h"
#include "tools/text/Escape.h"
#include "tools/text/Terminal.h"

namespace calcut::python {

using module::Finding;
using module::Layout;

py::object typeNamed(const char* name) {
    return py::module_::import("calcut._types").attr(name);
}

std::optional<std::string> pathOf(const py::object& source) {
    if (!py::isinstance<py::str>(source) && !py::hasattr(source, "__fspath__")) {
        return std::nullopt;
    }
    const auto path = py::module_::import("os").attr("fsencode")(source).cast<std::string>();
    if (path.find('\0') != std::string::npos) {
        throw py::value_error("a path with a null byte in it");
    }
    // Alone it would stand for standard input.
    return path == "-" ? "./-" : path;
}

std::optional<module::Layout> layoutOf(const std::string& word) {
    if (word == "auto") {
        return std::nullopt;
    }
    const std::optional<module::Layout> layout = module::layoutNamed(word);
    if (!layout) {
        std::string names;
        for (const module::Layout& known : module::knownLayouts()) {
            names += std::string(", \"") + known.name + "\"";
        }
        throw py::value_error("layout is \"auto\"" + names + ", not \"" + word + "\"");
    }
    return layout;
}

Input::Input(const py::object& source) : path_(pathOf(source)), name_(path_.value_or("<bytes>")) {
    if (path_) {
        return;
    }
    if (PyObject_CheckBuffer(source.ptr()) == 0) {
        throw py::type_error("a dump is a path or bytes");
    }
    const auto copy = py::reinterpret_steal<py::bytes>(PyBytes_FromObject(source.ptr()));
    if (!copy) {
        throw py::error_already_set();
    }
    const std::string_view view = copy;
    bytes_.assign(view.begin(), view.end());
}

void Input::load() {
    if (path_) {
        try {
            bytes_ = files::loadDump(*path_);
        } catch (const text::Refused& refused) {
            refusal_ = refused.what();
        }
    }
}

void Input::raiseUnlessLoaded() const {
    if (refusal_) {
        raiseOsError(*path_, *refusal_);
    }
}

py::object toPython(const module::Finding& finding) {
    const auto orNone = [](const std::string& text) -> py::object {
        return text.empty() ? py::object(py::none()) : py::str(text);
    };
    return typeNamed("Finding")(
        finding.name, finding.what, orNone(finding.expected), orNone(finding.found), finding.advice,
        finding.offset,
        orNone(finding.status == VANTRIC_OK ? std::string() : module::statusName(finding.status)),
        finding.blockId ? py::object(py::int_(*finding.blockId)) : py::none(),
        module::describe(finding));
}

py::list toPython(const std::vector<module::Finding>& findings) {
    py::list list;
    for (const module::Finding& finding : findings) {
        list.append(toPython(finding));
    }
    return list;
}

void raiseOsError(const std::string& path, const std::string& reason) {
    // Where the system has an error of its own, that one is raised.
    py::module_::import("os").attr("stat")(
        py::reinterpret_steal<py::object>(PyUnicode_DecodeFSDefault(path.c_str())));
    PyErr_SetString(PyExc_OSError, (text::escapePath(path) + ": " + reason).c_str());
    throw py::error_already_set();
}

void raiseCalcutError(const module::Finding& finding, const std::string& name) {
    const py::object type = typeNamed("CalcutError");
    PyErr_SetObject(type.ptr(), type(toPython(finding), text::escapePath(name)).ptr());
    throw py::error_already_set();
}

}  // namespace calcut::python
