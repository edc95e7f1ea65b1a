#include "capture/CsvText.h"

#include <fmt/format.h>

#include <cmath>
#include <iterator>

namespace tool {
namespace {

// Of a quantity in millimetres; empty if it is not known.
void AddSigma(fmt::memory_buffer& lines, float sigma) {
  lines.push_back(',');
  if (!std::isnan(sigma)) fmt::format_to(std::back_inserter(lines), "{:.5f}", sigma);
}

}  // namespace

CsvText::CsvText(const Measuring& measuring, bool rows_only)
    : calibrated_(measuring.calibrated()),
      sensor_(
          fmt::format("{}x{}", measuring.geometry.sensor_width, measuring.geometry.sensor_height)),
      rows_only_(rows_only) {}

std::string CsvText::Head() const {
  return std::string("frame_id,time_stamp,encoder_stamp,column,row,peak,line_width,sensor") +
         (calibrated_ ? ",x_mm,z_mm,sigma_x_mm,sigma_z_mm\n" : "\n");
}

std::string CsvText::Lines(const Frame& frame) const {
  fmt::memory_buffer lines;
  auto out = std::back_inserter(lines);
  for (const Point& point : frame.points) {
    fmt::format_to(out, "{},{},{},{},{:.5f},", frame.id, frame.time_stamp, frame.encoder_stamp,
                   point.column, point.row);
    if (rows_only_) {
      lines.push_back(',');
    } else {
      fmt::format_to(out, "{},{}", point.peak, point.width);
    }
    fmt::format_to(out, ",{}", sensor_);
    if (calibrated_) {
      fmt::format_to(out, ",{:.4f},{:.4f}", point.x, point.z);
      AddSigma(lines, point.x_sigma);
      AddSigma(lines, point.z_sigma);
    }
    lines.push_back('\n');
  }
  return fmt::to_string(lines);
}

}  // namespace tool
