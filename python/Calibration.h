// A read dump as Python sees it: every array is a view into the library's record.
#pragma once

#include <pybind11/pybind11.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "tools/module/Diagnosis.h"
#include "tools/module/Layout.h"

namespace calcut::python {

/// Bytes, and what was read from them; the arrays that are handed out keep it alive.
class Calibration {
  public:
    /// Reads; needs no interpreter lock. Look at about().faults before anything else.
    Calibration(std::vector<std::uint8_t> bytes, std::optional<module::Layout> layout);
    Calibration(const Calibration&) = delete;
    Calibration& operator=(const Calibration&) = delete;
    ~Calibration();

    [[nodiscard]] const std::vector<std::uint8_t>& bytes() const { return bytes_; }
    [[nodiscard]] const module::Diagnosis& about() const { return about_; }
    /// Null when nothing of the calibration reads.
    [[nodiscard]] const VantricCalibration* record() const { return about_.record.get(); }

  private:
    std::vector<std::uint8_t> bytes_;
    module::Diagnosis about_;
};

/// calcut.read(): raises when the dump does not read, or when strict and anything of it does not.
std::shared_ptr<Calibration> read(const pybind11::object& source, const std::string& layout,
                                  bool strict);

void bindCalibration(pybind11::module_& module);
/// What calcut.plot needs beside the arrays.
void bindPictures(pybind11::module_& module);

}  // namespace calcut::python
