// The module _virtual: the same on a virtual board, which stands in front of the device library,
// and what only a virtual board can do. board.h documents the functions.
#include <pybind11/stl.h>

#include <optional>
#include <string>
#include <utility>

#include "Define.h"
#include "WithoutGil.h"
#include "tessaline/board.h"

namespace py = pybind11;

namespace {

using Place = std::optional<std::pair<double, double>>;

Place PointToMm(double column, double row) {
  double x = 0;
  double z = 0;
  if (tessaline_board_point_to_mm(column, row, &x, &z) != 0) return std::nullopt;
  return std::pair(x, z);
}

std::string Transcript(bool json) {
  char* const text =
      tessaline_board_transcript(json ? TESSALINE_BOARD_JSON_LINES : TESSALINE_BOARD_TEXT);
  std::string result(text == nullptr ? "" : text);
  free(text);
  return result;
}

}  // namespace

PYBIND11_MODULE(_virtual, module) {
  python::DefineDevice(module);
  module.def("board_select", tessaline_board_select);
  module.def("board_set_sleep_factor", tessaline_board_set_sleep_factor);
  module.def("board_set_free_run", [](bool free_run) {
    tessaline_board_set_pace(free_run ? TESSALINE_BOARD_FREE_RUN : TESSALINE_BOARD_REAL_TIME);
  });
  module.def("board_set_strips_per_buffer", tessaline_board_set_strips_per_buffer);
  module.def("board_set_optics", tessaline_board_set_optics);
  module.def("board_set_scene", tessaline_board_set_scene);
  module.def("board_transcript", Transcript);
  module.def("board_transcript_clear", tessaline_board_transcript_clear);
  module.def("board_transcript_enable", tessaline_board_transcript_enable);
  module.def("board_fault", tessaline_board_fault);
  module.def("board_frame_fault", [](int stream, int kind, unsigned skip, unsigned count) {
    tessaline_board_frame_fault(stream, static_cast<enum tessaline_board_frame_fault>(kind), skip,
                                count);
  });
  module.def("board_clear_faults", tessaline_board_clear_faults);
  module.def("board_unplug", tessaline_board_unplug, py::call_guard<python::WithoutGil>());
  module.def("board_chip_get", tessaline_board_chip_get);
  module.def("board_chip_set", tessaline_board_chip_set);
  module.def("board_chip_present", tessaline_board_chip_present);
  module.def("board_gpio_level", tessaline_board_gpio_level);
  module.def("board_set_temperature_raw", tessaline_board_set_temperature_raw);
  module.def("board_external_trigger", tessaline_board_external_trigger);
  module.def("board_da_arrived", tessaline_board_da_arrived);
  module.def("board_register_get", tessaline_board_register_get);
  module.def("board_register_set", tessaline_board_register_set);
  module.def("board_stream_stats", [](int stream) {
    struct tessaline_board_stream_stats stats {};
    tessaline_board_stream_stats(stream, &stats);
    return py::dict(py::arg("frames") = stats.frames, py::arg("delivered") = stats.delivered,
                    py::arg("lost") = stats.lost, py::arg("buffers") = stats.buffers);
  });
  module.def("board_keep_checksums", tessaline_board_keep_checksums);
  module.def("board_frame_checksum", [](std::uint64_t frame_id) -> std::optional<std::uint64_t> {
    std::uint64_t checksum = 0;
    if (tessaline_board_frame_checksum(frame_id, &checksum) != 0) return std::nullopt;
    return checksum;
  });
  module.def("board_checksum", [](const py::buffer& bytes) {
    const py::buffer_info info = bytes.request();
    return tessaline_board_checksum(info.ptr, static_cast<std::size_t>(info.size * info.itemsize));
  });
  module.def("board_scene_height", tessaline_board_scene_height);
  module.def("board_scene_row", tessaline_board_scene_row);
  module.def("board_scene_x", tessaline_board_scene_x);
  module.def("board_counts_per_mm", tessaline_board_scene_counts_per_mm);
  module.def("board_point_to_mm", PointToMm);
}
