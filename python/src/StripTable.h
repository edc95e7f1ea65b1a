#pragma once

#include <pybind11/pybind11.h>

#include <cstddef>
#include <cstdint>
#include <vector>

#include "tessaline/frames.h"

namespace python {

// Where the strips of a delivery lie, and what their headers say. It stays when the memory goes.
class StripTable {
 public:
  // Strips that do not fit into the bytes are left out. `point_bytes` is not 0.
  StripTable(unsigned count, const std::uint8_t* data, std::size_t bytes, std::size_t point_bytes);

  std::size_t size() const { return rows_.size(); }

  // Offset, points, frame id, time stamp, encoder stamp. Raises an IndexError.
  pybind11::tuple At(pybind11::ssize_t index) const;

  // Leaves out strips exposed before `since`, and all but the first `most` of the others.
  void Keep(std::uint64_t since, std::size_t most);

 private:
  struct Row {
    std::size_t at;
    tessaline_strip_header header;
  };
  std::vector<Row> rows_;
};

// For one module: others may have one of their own.
pybind11::class_<StripTable> DefineStripTable(pybind11::module_& module);

}  // namespace python
