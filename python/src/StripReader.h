#pragma once

#include <pybind11/pybind11.h>

#include <cstddef>
#include <cstdint>
#include <mutex>

#include "GrowingArray.h"
#include "tessaline/profile.h"

namespace python {

// Collects strips as arrays: one number a strip, or one a point. Any thread.
class StripReader {
 public:
  // Raises a RefusedError unless there are such points.
  StripReader(const tessaline_geometry& geometry, std::uint32_t point_bytes);

  // Reads strips that lie one behind the other, without the GIL. Raises a StripError if they do not
  // fit their bytes, and then reads none.
  void Add(pybind11::handle strips, std::uint32_t count);

  // All that was read: frame ids, time stamps, encoder stamps, where each strip's points start and
  // the last one's end; and of points columns, rows, peaks, widths, validity. Nothing is left.
  pybind11::tuple Take();

 private:
  struct Reading {
    int result;
    std::uint32_t strips;
  };
  Reading Read(const void* data, std::size_t bytes, std::uint32_t count);

  const tessaline_geometry geometry_;
  const std::uint32_t point_bytes_;
  std::mutex mutex_;  // taken without the GIL, or there is a deadlock
  std::size_t strips_ = 0;
  std::size_t points_ = 0;
  GrowingArray<std::uint64_t> frame_ids_, time_stamps_, encoder_stamps_;
  GrowingArray<std::int64_t> starts_;
  GrowingArray<float> columns_, rows_;
  GrowingArray<std::uint8_t> peaks_, widths_, valid_;
};

void DefineStripReader(pybind11::module_& module);

}  // namespace python
