#include "StripTable.h"

#include <cstring>

namespace py = pybind11;

namespace python {

StripTable::StripTable(unsigned count, const std::uint8_t* data, std::size_t bytes,
                       std::size_t point_bytes) {
  std::size_t at = 0;
  for (unsigned i = 0; i < count; ++i) {
    tessaline_strip_header header;
    if (bytes - at < sizeof header) break;
    std::memcpy(&header, data + at, sizeof header);
    const std::size_t left = bytes - at - sizeof header;
    if (header.point_count > left / point_bytes) break;
    rows_.push_back({at, header});
    at += sizeof header + header.point_count * point_bytes;
  }
}

py::tuple StripTable::At(py::ssize_t index) const {
  const auto size = static_cast<py::ssize_t>(rows_.size());
  if (index < -size || index >= size) throw py::index_error("there is no such strip");
  const auto& [at, header] = rows_[static_cast<std::size_t>(index < 0 ? index + size : index)];
  return py::make_tuple(at, header.point_count, header.frame_id, header.time_stamp,
                        header.encoder_stamp);
}

void StripTable::Keep(std::uint64_t since, std::size_t most) {
  std::erase_if(rows_, [since](const Row& row) { return row.header.time_stamp < since; });
  if (rows_.size() > most) rows_.resize(most);
}

py::class_<StripTable> DefineStripTable(py::module_& module) {
  return py::class_<StripTable>(module, "StripTable", py::module_local())
      .def("__len__", &StripTable::size)
      .def("__getitem__", &StripTable::At)
      .def("keep", &StripTable::Keep, py::arg("since"), py::arg("most"));
}

}  // namespace python
