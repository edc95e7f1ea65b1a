#include "Calibrations.h"

#include <pybind11/numpy.h>
#include <pybind11/stl.h>

#include <array>
#include <cstdint>
#include <limits>
#include <span>
#include <string>

#include "Bytes.h"
#include "Failure.h"
#include "Raise.h"
#include "WithoutGil.h"
#include "calibrate/CalibrationFile.h"

namespace py = pybind11;

namespace python {

namespace {

using tool::calibrate::StoredCalibration;
template <typename T>
using Numbers = py::array_t<T, py::array::c_style | py::array::forcecast>;

constexpr double kNowhere = std::numeric_limits<double>::quiet_NaN();

template <typename Function>
auto OrCalibrationError(Function function) {
  try {
    return function();
  } catch (const tool::Failure& failure) {
    Raise("CalibrationError", failure.what(), failure.next());
  }
}

StoredCalibration Read(const std::string& path) {
  return OrCalibrationError([&] {
    const WithoutGil release;  // a slow disk, or a pipe
    return tool::calibrate::ReadCalibration(path);
  });
}

StoredCalibration Parse(const std::string& text, const std::string& source) {
  return OrCalibrationError([&] { return tool::calibrate::ParseCalibration(text, source); });
}

// Numbers from elsewhere may be none: the bytes of a model are anybody's.
std::string Json(const StoredCalibration& stored) {
  return tool::calibrate::ToJson(stored).dump(2, ' ', false,
                                              nlohmann::json::error_handler_t::replace);
}

// Nothing: there is no block.
std::optional<StoredCalibration> FromBlock(py::handle object) {
  const Bytes bytes(object);
  const std::span block(static_cast<const std::uint8_t*>(bytes.data()), bytes.size());
  const tool::calibrate::FoundBlock found = tool::calibrate::FromBlock(block);
  using State = tool::calibrate::FoundBlock::State;
  if (found.state == State::kNone) return std::nullopt;
  if (found.state == State::kSound) return found.stored;
  Raise("CalibrationError", tool::calibrate::Complaint(found),
        "store one with \"tessaline calibration store FILE\"");
}

py::bytes ToBlock(const StoredCalibration& stored) {
  const auto block = tool::calibrate::ToBlock(stored);
  return {reinterpret_cast<const char*>(block.data()), block.size()};
}

void RequireSameSize(const py::array& one, const py::array& other) {
  if (one.size() == other.size()) return;
  Raise("RefusedError", "there must be a second number for each first one",
        "give arrays of the same shape");
}

void Require(int result) {
  if (result == TESSALINE_PROFILE_OK) return;
  Raise("CalibrationError", tessaline_profile_text(result),
        "give the calibration of the head that the strips come from");
}

// As many points as the arrays have, as if they were one profile.
py::tuple Measure(const StoredCalibration& stored, const Numbers<float>& columns,
                  const Numbers<float>& rows, std::uint32_t sensor_width,
                  std::uint32_t sensor_height) {
  RequireSameSize(columns, rows);
  tessaline_profile profile{};
  profile.capacity = profile.point_count = static_cast<std::size_t>(columns.size());
  // The library only reads them.
  profile.column = const_cast<float*>(columns.data());
  profile.row = const_cast<float*>(rows.data());
  profile.sensor_width = sensor_width;
  profile.sensor_height = sensor_height;
  std::array<py::array_t<float>, 4> arrays;
  for (auto& array : arrays) array = py::array_t<float>(columns.size());
  tessaline_millimetres mm{};
  mm.x = arrays[0].mutable_data();
  mm.z = arrays[1].mutable_data();
  mm.x_sigma = arrays[2].mutable_data();
  mm.z_sigma = arrays[3].mutable_data();
  int result = 0;
  {
    const WithoutGil release;
    result = tessaline_profile_to_mm(&stored.numbers, &profile, &mm);
  }
  Require(result);
  return py::make_tuple(arrays[0], arrays[1], arrays[2], arrays[3]);
}

// One array of results for each number that `convert` writes; NaN where it cannot.
template <std::size_t kResults, typename Convert>
py::tuple ForEach(const Numbers<double>& first, const Numbers<double>& second, Convert convert) {
  RequireSameSize(first, second);
  std::array<py::array_t<double>, kResults> arrays;
  std::array<double*, kResults> results;
  for (std::size_t i = 0; i < kResults; ++i) {
    arrays[i] = py::array_t<double>(first.size());
    results[i] = arrays[i].mutable_data();
  }
  const double* const ones = first.data();
  const double* const others = second.data();
  const py::ssize_t count = first.size();
  {
    const WithoutGil release;
    for (py::ssize_t i = 0; i < count; ++i) {
      std::array<double, kResults> numbers;
      numbers.fill(kNowhere);
      convert(ones[i], others[i], numbers);
      for (std::size_t k = 0; k < kResults; ++k) results[k][i] = numbers[k];
    }
  }
  py::tuple tuple(kResults);
  for (std::size_t i = 0; i < kResults; ++i) tuple[i] = arrays[i];
  return tuple;
}

py::tuple PointsToMm(const StoredCalibration& stored, const Numbers<double>& columns,
                     const Numbers<double>& rows) {
  return ForEach<4>(columns, rows, [&](double column, double row, std::array<double, 4>& mm) {
    tessaline_measurement point;
    if (tessaline_point_to_mm(&stored.numbers, column, row, &point) == TESSALINE_PROFILE_OK) {
      mm = {point.x, point.z, point.x_sigma, point.z_sigma};
    }
  });
}

py::tuple PointsToPixels(const StoredCalibration& stored, const Numbers<double>& x,
                         const Numbers<double>& z) {
  return ForEach<2>(x, z, [&](double at_x, double at_z, std::array<double, 2>& pixel) {
    tessaline_point_to_pixel(&stored.numbers, at_x, at_z, &pixel[0], &pixel[1]);
  });
}

}  // namespace

void DefineCalibrations(py::module_& module) {
  py::class_<StoredCalibration>(module, "Calibration")
      .def_static("read", &Read, py::arg("path"))
      .def_static("parse", &Parse, py::arg("text"), py::arg("source"))
      .def_static("from_block", &FromBlock, py::arg("block"))
      .def("to_block", &ToBlock)
      .def("to_json", &Json)
      .def("measure", &Measure, py::arg("columns"), py::arg("rows"), py::arg("sensor_width"),
           py::arg("sensor_height"))
      .def("points_to_mm", &PointsToMm, py::arg("columns"), py::arg("rows"))
      .def("points_to_pixels", &PointsToPixels, py::arg("x"), py::arg("z"));
  module.attr("EEPROM_OFFSET") = tool::calibrate::kBlockAt;
  module.attr("EEPROM_BYTES") = tool::calibrate::kBlockBytes;
}

}  // namespace python
