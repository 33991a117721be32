#include "python/Calibration.h"

#include <malloc.h>
#include <pybind11/numpy.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <cstring>
#include <utility>

#include "python/Input.h"
#include "tools/inspect/Inspect.h"
#include "tools/module/Layout.h"
#include "tools/module/Names.h"
#include "tools/text/Escape.h"

namespace calcut::python {

namespace {

using Record = VantricCalibration;
using Shape = std::vector<py::ssize_t>;

/// What people hold; a null pointer never gets into an instance.
using Held = std::shared_ptr<Calibration>;

/// A read-only view; owner lives as long as the view. None where the read did not come so far.
template <class T>
py::object viewOf(const py::object& owner, const T* data, Shape shape) {
    if (data == nullptr) {
        return py::none();
    }
    py::array_t<T> view(std::move(shape), data, owner);
    view.attr("setflags")(py::arg("write") = false);
    return view;
}

template <class T>
py::object viewOf(const py::object& owner, const T* data, std::size_t count) {
    return viewOf(owner, data, Shape{static_cast<py::ssize_t>(count)});
}

template <class T>
py::object imageOf(const py::object& owner, const T* data) {
    const VantricImagerArea& area = owner.cast<Held>()->record()->imagerArea;
    return viewOf(owner, data, Shape{area.rows, area.columns});
}

py::object stringOf(const char* text) {
    return py::str(text::escapeBytes({text, strnlen(text, VANTRIC_TEXT_BYTES)}));
}

py::object lensOf(const py::object& /*owner*/, const Record& record) {
    py::tuple values(VANTRIC_LENS_PARAMETERS);
    for (std::size_t i = 0; i < values.size(); ++i) {
        values[i] = record.lensParameters[i];
    }
    return typeNamed("Lens")(*values);
}

py::object idBytesOf(const py::object& /*owner*/, const Record& record) {
    return py::bytes(reinterpret_cast<const char*>(record.idBytes),
                     std::min<std::size_t>(record.idBytesSize, VANTRIC_ID_BYTES));
}

py::object straylightOf(const py::object& owner, const Record& record) {
    const std::size_t points =
        std::min<std::size_t>(record.straylightPointCount, VANTRIC_STRAYLIGHT_POINTS + 1);
    // Making the PSF puts an origin point in front of the profile; shown are the file's.
    const std::size_t skip = record.psf != nullptr && points > 0 ? 1 : 0;
    return typeNamed("Straylight")(record.straylightScale, record.straylightExponent,
                                   record.straylightOffset, record.straylightCentre,
                                   viewOf(owner, record.straylightRadius + skip, points - skip),
                                   viewOf(owner, record.straylightValue + skip, points - skip));
}

py::object directionsOf(const py::object& owner, const Record& record) {
    const VantricImagerArea& area = record.imagerArea;
    return viewOf(owner, record.directions, Shape{area.rows, area.columns, 3});
}

py::object psfOf(const py::object& owner, const Record& record) {
    const bool empty = record.psf == nullptr || record.psfHeight == 0 || record.psfWidth == 0;
    return empty ? py::none() : viewOf(owner, record.psf, Shape{record.psfHeight, record.psfWidth});
}

constexpr const char* textDoc =
    "str of printable ASCII, a backslash doubled and any other byte as \\xNN; or None.";

/// What a record or a frequency of it has when its block is there. owner is the Calibration.
template <class Of>
struct Property {
    const char* name;
    std::uint32_t block;
    py::object (*get)(const py::object& owner, const Of& record);
    const char* doc;
};

constexpr Property<Record> properties[] = {
    {"mask", RX_BLOCK_MASK, [](auto& owner, auto& of) { return imageOf(owner, of.pixelMask); },
     "uint8 (rows, columns); 0 is a masked (unusable) pixel."},
    {"pixel_values", RX_BLOCK_PIXEL_VALUES,
     [](auto& owner, auto& of) { return imageOf(owner, of.pixelValues); },
     "float32 (rows, columns), one value a pixel."},
    {"directions", RX_BLOCK_LENS_PARAMETERS, directionsOf,
     "float32 (rows, columns, 3): the unit vector that each pixel looks along; x right, y down, z "
     "along the optical axis."},
    {"psf", RX_BLOCK_STRAYLIGHT, psfOf,
     "float32 (height, width) in PSF elements, the centre at (0, 0) and offsets wrapping around "
     "the edges; None without a straylight model."},
    {"lens", RX_BLOCK_LENS_PARAMETERS, lensOf,
     "Lens: nine named values, focal lengths and principal point in pixels."},
    {"straylight", RX_BLOCK_STRAYLIGHT, straylightOf,
     "Straylight: the model that the PSF is made from; or None."},
    {"text0", RX_BLOCK_DATE, [](auto&, auto& of) { return stringOf(of.text0); }, textDoc},
    {"text1", RX_BLOCK_TEXT1, [](auto&, auto& of) { return stringOf(of.text1); }, textDoc},
    {"text2", RX_BLOCK_TEXT2, [](auto&, auto& of) { return stringOf(of.text2); }, textDoc},
    {"id_bytes", RX_BLOCK_ID_BYTES, idBytesOf, "bytes (up to 32), or None."},
    {"id_codes", RX_BLOCK_ID_CODES,
     [](auto&, auto& of) -> py::object { return py::make_tuple(of.idCode0, of.idCode1); },
     "Two numbers, 65535 where unset; or None."},
    {"aux_flag", RX_BLOCK_AUX_FLAG,
     [](auto&, auto& of) -> py::object { return py::int_(of.auxFlag); }, "int, or None."},
};

/// What type checkers expect; pybind11's own serves static properties.
py::handle plainMetaclass() {
    return reinterpret_cast<PyObject*>(&PyType_Type);
}

/// Instances come out of read() alone; one without content would be read through a null pointer.
void refuseConstruction(const py::object& type) {
    reinterpret_cast<PyTypeObject*>(type.ptr())->tp_new =
        [](PyTypeObject* /*type*/, PyObject* /*words*/, PyObject* /*named*/) -> PyObject* {
        PyErr_SetString(PyExc_TypeError, "calcut.read() makes these");
        return nullptr;
    };
    PyType_Modified(reinterpret_cast<PyTypeObject*>(type.ptr()));
}

// ------------------------------------------------------------------------------------ frequency --

struct Frequency {
    py::object owner;
    unsigned index;
};

py::object wigglingOf(const py::object& owner, const VantricWigglingTable& table) {
    const std::size_t entries = std::min<std::size_t>(table.capacity, VANTRIC_WIGGLING_ENTRIES);
    return typeNamed("Wiggling")(table.header, viewOf(owner, table.first, entries),
                                 viewOf(owner, table.second, entries),
                                 viewOf(owner, table.third, entries));
}

py::object valuesOf(const py::object& owner, const float* values, std::uint8_t count) {
    return viewOf(owner, values, std::min<std::size_t>(count, VANTRIC_FREQUENCY_VALUES));
}

constexpr Property<VantricFrequencyRecord> frequencyProperties[] = {
    {"id", RX_FREQUENCY_ID, [](auto&, auto& of) -> py::object { return py::int_(of.frequencyId); },
     "Number of the frequency."},
    {"pixel_table", RX_FREQUENCY_PIXEL_TABLE,
     [](auto& owner, auto& of) { return imageOf(owner, of.pixelTable); },
     "float32 (rows, columns), one value a pixel."},
    {"values_a", RX_FREQUENCY_VALUES_A,
     [](auto& owner, auto& of) { return valuesOf(owner, of.valuesA, of.countA); },
     "float32 (up to 4,)."},
    {"values_b", RX_FREQUENCY_VALUES_B,
     [](auto& owner, auto& of) { return valuesOf(owner, of.valuesB, of.countB); },
     "float32 (up to 4,)."},
    {"scalar", RX_FREQUENCY_SCALAR,
     [](auto&, auto& of) -> py::object { return py::float_(of.scalar); },
     "float, or None where the dump has none."},
    {"wiggling_a", RX_FREQUENCY_WIGGLING_A,
     [](auto& owner, auto& of) { return wigglingOf(owner, of.wigglingA); },
     "Wiggling: first table of the periodic distance error."},
    {"wiggling_b", RX_FREQUENCY_WIGGLING_B,
     [](auto& owner, auto& of) { return wigglingOf(owner, of.wigglingB); },
     "Wiggling: second table of the periodic distance error."},
};

void bindFrequency(py::module_& module) {
    py::class_<Frequency, std::shared_ptr<Frequency>> type(
        module, "Frequency", py::metaclass(plainMetaclass()),
        "Calibration of one modulation frequency.");
    refuseConstruction(type);
    type.def_property_readonly(
        "index", [](const std::shared_ptr<Frequency>& self) { return self->index; },
        "Place among the eight records, from 0.");
    for (const auto& property : frequencyProperties) {
        const auto get = [&property](const std::shared_ptr<Frequency>& self) -> py::object {
            const Held of = self->owner.cast<Held>();
            return of->about().wasRead(module::frequencyBlock(self->index, property.block))
                       ? property.get(self->owner, of->record()->frequencies[self->index])
                       : py::none();
        };
        type.def_property_readonly(property.name, get, property.doc);
    }
}

// ----------------------------------------------------------------------------------- the whole --

py::list frequenciesOf(const py::object& self) {
    py::list list;
    // Records are filled by id, so a calibration that leaves one out has a gap.
    for (unsigned k = 0; k < VANTRIC_FREQUENCIES; ++k) {
        if (self.cast<Held>()->about().wasRead(module::frequencyBlock(k, RX_FREQUENCY_ID))) {
            list.append(std::make_shared<Frequency>(Frequency{self, k}));
        }
    }
    return list;
}

py::dict customOf(const Held& of) {
    py::dict fields;
    const Record* record = of->record();
    const bool read = record != nullptr && of->about().status == VANTRIC_OK &&
                      of->about().customStatus == VANTRIC_OK;
    for (unsigned k = 0; read && k < record->customFieldCount; ++k) {
        const VantricCustomField& field = record->customFields[k];
        fields[py::int_(record->firstCustomFieldId + k)] =
            py::bytes(reinterpret_cast<const char*>(field.data), field.size);
    }
    return fields;
}

py::object sizeOf(const Held& of, std::uint32_t VantricImagerArea::*member) {
    return of->record() == nullptr ? py::object(py::none())
                                   : py::int_(of->record()->imagerArea.*member);
}

py::object reprOf(const Held& of) {
    return py::str("<calcut.Calibration: {}, {} x {} pixels{}>")
        .format(of->about().layout.name, sizeOf(of, &VantricImagerArea::columns),
                sizeOf(of, &VantricImagerArea::rows), of->about().intact() ? "" : ", damaged");
}

py::tuple reduce(const Held& of) {
    const auto* bytes = reinterpret_cast<const char*>(of->bytes().data());
    return py::make_tuple(
        py::module_::import("calcut").attr("_unpickle"),
        py::make_tuple(py::bytes(bytes, of->bytes().size()), of->about().layout.name));
}

}  // namespace

Calibration::Calibration(std::vector<std::uint8_t> bytes, std::optional<module::Layout> layout)
    : bytes_(std::move(bytes)),
      about_(module::diagnose(bytes_, layout.value_or(module::classify(bytes_)),
                              vantric::Wanted::everything)) {
    // The library makes room for eight frequencies; most modules have three, and people hold
    // thousands of modules.
    for (unsigned k = 0; about_.record && k < VANTRIC_FREQUENCIES; ++k) {
        if (!about_.wasRead(module::frequencyBlock(k, RX_FREQUENCY_PIXEL_TABLE))) {
            float*& table = about_.record->frequencies[k].pixelTable;
            std::free(std::exchange(table, nullptr));
        }
    }
}

Calibration::~Calibration() {
#ifdef __GLIBC__
    // Python's small objects end up between the arrays, so that glibc alone would give nothing back
    // of a thousand modules. Often enough to be of use, too seldom to be felt.
    constexpr std::size_t enough = std::size_t{64} << 20;
    static std::atomic<std::size_t> released{0};
    // Pixel values, three directions, the PSF and a table for each of some frequencies.
    constexpr std::size_t floats = 8;
    const std::size_t pixels = about_.record ? std::size_t{about_.record->imagerArea.columns} *
                                                   about_.record->imagerArea.rows
                                             : 0;
    const std::size_t mine = bytes_.size() + pixels * floats * sizeof(float);
    about_.record.reset();
    std::vector<std::uint8_t>().swap(bytes_);
    if (released.fetch_add(mine) + mine >= enough) {
        released = 0;
        malloc_trim(0);
    }
#endif
}

std::shared_ptr<Calibration> read(const py::object& source, const std::string& layout,
                                  bool strict) {
    Input input(source);
    const std::optional<module::Layout> wanted = layoutOf(layout);
    std::shared_ptr<Calibration> calibration;
    {
        const py::gil_scoped_release others;
        input.load();
        calibration = std::make_shared<Calibration>(std::move(input.bytes()), wanted);
    }
    input.raiseUnlessLoaded();
    if (strict && !calibration->about().intact()) {
        raiseCalcutError(calibration->about().faults.front(), input.name());
    }
    return calibration;
}

void bindCalibration(py::module_& module) {
    bindFrequency(module);
    py::class_<Calibration, Held> type(
        module, "Calibration", py::metaclass(plainMetaclass()),
        "A read dump. Its arrays are read-only views into memory that they keep alive; what the "
        "dump does not have, or what did not read, is None. Pickles by its bytes.");
    refuseConstruction(type);
    for (const auto& property : properties) {
        const auto get = [&property](const py::object& self) -> py::object {
            const Held of = self.cast<Held>();
            return of->about().wasRead(property.block) ? property.get(self, *of->record())
                                                       : py::none();
        };
        type.def_property_readonly(property.name, get, property.doc);
    }
    const auto size = [](auto member) {
        return [member](const Held& of) { return sizeOf(of, member); };
    };
    const auto layout = [](const Held& of) { return of->about().layout.name; };
    const auto faults = [](const Held& of) { return toPython(of->about().faults); };
    const auto warnings = [](const Held& of) {
        std::vector<module::Finding> all = of->about().warnings;
        std::ranges::move(module::tableWarnings(of->about()), std::back_inserter(all));
        return toPython(all);
    };
    type.def_property_readonly("columns", size(&VantricImagerArea::columns), "Pixels in a row.")
        .def_property_readonly("rows", size(&VantricImagerArea::rows), "Rows of pixels.")
        .def_property_readonly("layout", layout, "\"v7\", \"korveline\" or \"packed\".")
        .def_property_readonly("faults", faults,
                               "list of Finding: what is wrong with it; empty unless it was read "
                               "with strict=False.")
        .def_property_readonly("warnings", warnings, "list of Finding: what is odd about it.")
        .def_property_readonly("frequencies", frequenciesOf, "list of Frequency, those it has.")
        .def_property_readonly("custom", customOf, "dict of field id (from 128) to bytes.")
        .def("__repr__", reprOf)
        .def("__reduce__", reduce);
}

}  // namespace calcut::python
