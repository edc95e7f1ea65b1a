// The module _profile: strips, profiles, millimetres, calibrations. It needs no device and does not
// load the device library.
#include <dlfcn.h>
#include <pybind11/pybind11.h>
#include <pybind11/stl.h>

#include <array>
#include <cstdint>
#include <optional>
#include <string>

#include "Calibrations.h"
#include "Failure.h"
#include "Geometry.h"
#include "Raise.h"
#include "SensorLimits.h"
#include "StripReader.h"

namespace py = pybind11;

namespace python {

namespace {

// Raises a RefusedError if no frame can lie on a sensor like this.
tessaline_geometry MakeGeometry(const std::array<std::uint32_t, 8>& n) {
  const tessaline_geometry geometry{n[0], n[1], n[2], n[3], n[4], n[5], n[6], n[7]};
  tessaline_strips none{};
  none.point_bytes = sizeof(tessaline_full_point);
  tessaline_profile profile{};
  if (const int result = tessaline_strips_next(&none, &geometry, &profile);
      result != TESSALINE_PROFILE_END) {
    Raise("RefusedError", tessaline_profile_text(result),
          "a sensor has 1 to 32768 columns and rows, the first column and row lie on it, and steps "
          "are 1 to 16");
  }
  return geometry;
}

// Without a region: that of a start, which is also that of a change of the drive mode.
tessaline_geometry GeometryOf(const std::string& code,
                              const std::optional<std::array<unsigned, 2>>& offset,
                              unsigned drive_mode, unsigned direction) {
  try {
    const tool::Model model(code);
    model.Require();
    tool::Region region = tool::LimitsOf(model).start;
    if (offset) {
      region.x = offset->at(0);
      region.y = offset->at(1);
    }
    return tool::GeometryOf(model, region, drive_mode, direction);
  } catch (const tool::Failure& failure) {
    Raise("RefusedError", failure.what(), failure.next());
  }
}

py::tuple NumbersOf(const tessaline_geometry& g) {
  return py::make_tuple(g.sensor_width, g.sensor_height, g.first_column, g.first_row, g.column_step,
                        g.row_step, g.flip_columns, g.flip_rows);
}

// The file that the code of this module's library comes from.
std::string LibraryPath() {
  Dl_info library;
  if (dladdr(reinterpret_cast<void*>(&tessaline_profile_text), &library) == 0) return {};
  return library.dli_fname;
}

}  // namespace

}  // namespace python

PYBIND11_MODULE(_profile, module) {
  py::class_<tessaline_geometry>(module, "Geometry")
      .def(py::init(&python::MakeGeometry), py::arg("numbers"))
      .def("numbers", &python::NumbersOf);
  module.def("geometry_of", &python::GeometryOf, py::arg("model"), py::arg("offset"),
             py::arg("drive_mode"), py::arg("direction"));
  module.def("library_path", &python::LibraryPath);
  python::DefineStripReader(module);
  python::DefineCalibrations(module);
}
