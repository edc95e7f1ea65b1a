#include "StripReader.h"

#include <pybind11/numpy.h>

#include <algorithm>
#include <string>

#include "Bytes.h"
#include "Raise.h"
#include "WithoutGil.h"

namespace py = pybind11;

namespace python {

StripReader::StripReader(const tessaline_geometry& geometry, std::uint32_t point_bytes)
    : geometry_(geometry), point_bytes_(point_bytes) {
  tessaline_strips none;
  if (tessaline_strips_begin(&none, nullptr, 0, 0, point_bytes) != TESSALINE_PROFILE_OK) {
    Raise("RefusedError", "there are no points of " + std::to_string(point_bytes) + " bytes",
          "point_bytes is 8, 4 or 2");
  }
}

StripReader::Reading StripReader::Read(const void* data, std::size_t bytes, std::uint32_t count) {
  // No count that the bytes cannot hold is believed.
  const std::size_t most_strips =
      std::min<std::size_t>(count, bytes / sizeof(tessaline_strip_header));
  const std::size_t most_points = bytes / point_bytes_;
  for (auto* const stamps : {&frame_ids_, &time_stamps_, &encoder_stamps_}) {
    stamps->Reserve(strips_ + most_strips);
  }
  starts_.Reserve(strips_ + most_strips + 1);
  for (auto* const places : {&columns_, &rows_}) places->Reserve(points_ + most_points);
  for (auto* const looks : {&peaks_, &widths_, &valid_}) looks->Reserve(points_ + most_points);

  tessaline_strips strips;
  Reading reading{tessaline_strips_begin(&strips, data, bytes, count, point_bytes_), 0};
  std::size_t points = points_;
  while (reading.result == TESSALINE_PROFILE_OK) {
    tessaline_profile profile{};
    profile.capacity = points_ + most_points - points;
    profile.column = columns_.data() + points;
    profile.row = rows_.data() + points;
    profile.peak = peaks_.data() + points;
    profile.width = widths_.data() + points;
    profile.valid = valid_.data() + points;
    reading.result = tessaline_strips_next(&strips, &geometry_, &profile);
    if (reading.result != TESSALINE_PROFILE_OK) break;
    const std::size_t strip = strips_ + reading.strips;
    frame_ids_.data()[strip] = profile.frame_id;
    time_stamps_.data()[strip] = profile.time_stamp;
    encoder_stamps_.data()[strip] = profile.encoder_stamp;
    starts_.data()[strip] = static_cast<std::int64_t>(points);
    points += profile.point_count;
    ++reading.strips;
  }
  if (reading.result == TESSALINE_PROFILE_END) {
    strips_ += reading.strips;
    points_ = points;
  }
  return reading;
}

void StripReader::Add(py::handle strips, std::uint32_t count) {
  const Bytes bytes(strips);
  Reading reading{};
  {
    const WithoutGil release;
    const std::lock_guard lock(mutex_);
    reading = Read(bytes.data(), bytes.size(), count);
  }
  if (reading.result == TESSALINE_PROFILE_END) return;
  const std::string of = " of " + std::to_string(count);
  const std::string what =
      reading.strips == count
          ? "bytes are left behind the last" + of + " strips"
          : "strip " + std::to_string(reading.strips + 1) + of + " does not fit into the bytes";
  Raise("StripError", what + " (" + std::to_string(bytes.size()) + " bytes)",
        "give the bytes and the number of strips as they were received, and the point_bytes of the "
        "product: 8, 4 or 2");
}

py::tuple StripReader::Take() {
  const WithoutGil release;
  const std::lock_guard lock(mutex_);
  const py::gil_scoped_acquire acquire;
  starts_.Reserve(strips_ + 1);
  starts_.data()[strips_] = static_cast<std::int64_t>(points_);
  py::tuple arrays = py::make_tuple(
      frame_ids_.Release(strips_), time_stamps_.Release(strips_), encoder_stamps_.Release(strips_),
      starts_.Release(strips_ + 1), columns_.Release(points_), rows_.Release(points_),
      peaks_.Release(points_), widths_.Release(points_), valid_.Release(points_));
  strips_ = points_ = 0;
  return arrays;
}

void DefineStripReader(py::module_& module) {
  py::class_<StripReader>(module, "StripReader")
      .def(py::init<const tessaline_geometry&, std::uint32_t>(), py::arg("geometry"),
           py::arg("point_bytes"))
      .def("add", &StripReader::Add, py::arg("strips"), py::arg("count"))
      .def("take", &StripReader::Take);
}

}  // namespace python
