// What a caller hands in, and what goes back when it is no good.
#pragma once

#include <pybind11/pybind11.h>

#include <optional>
#include <string>
#include <vector>

#include "tools/module/Diagnosis.h"
#include "tools/module/Layout.h"

namespace calcut::python {

namespace py = pybind11;

/// Something of calcut._types, by its name there.
py::object typeNamed(const char* name);

/// str and os.PathLike as the bytes of a path; nothing for anything else.
std::optional<std::string> pathOf(const py::object& source);

/// "auto" is nothing. Raises ValueError for a word that names no layout.
std::optional<module::Layout> layoutOf(const std::string& word);

/// A dump as a path or as bytes.
class Input {
  public:
    /// Raises TypeError for what is neither path nor bytes-like. Bytes are copied.
    explicit Input(const py::object& source);

    /// Loads a file; needs no interpreter lock.
    void load();
    /// Raises OSError when the file did not load.
    void raiseUnlessLoaded() const;

    /// The path as given, or "<bytes>".
    [[nodiscard]] const std::string& name() const { return name_; }
    [[nodiscard]] std::vector<std::uint8_t>& bytes() { return bytes_; }

  private:
    std::optional<std::string> path_;
    std::string name_;
    std::vector<std::uint8_t> bytes_;
    std::optional<std::string> refusal_;  ///< why the file did not load
};

py::object toPython(const module::Finding& finding);
py::list toPython(const std::vector<module::Finding>& findings);

/// OSError, or FileNotFoundError where nothing has that path.
[[noreturn]] void raiseOsError(const std::string& path, const std::string& reason);

[[noreturn]] void raiseCalcutError(const module::Finding& finding, const std::string& name);

}  // namespace calcut::python
