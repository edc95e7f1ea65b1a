#include "capture/PlyWriter.h"

#include <fmt/core.h>

namespace tool {
namespace {

constexpr std::size_t kPlyHeadBytes = 320;
constexpr std::string_view kEnd = "\nend_header\n";

}  // namespace

PlyWriter::PlyWriter(const WriterSettings& settings)
    : file_(settings.path, settings.force),
      measuring_(settings.measuring),
      rows_only_(settings.rows_only),
      points_before_{0} {
  file_.Append(Head(0));
  file_.Flush();
}

// The number of points is only known at the end; a comment pads the space kept for it.
std::string PlyWriter::Head(std::size_t points) const {
  std::string head = fmt::format(
      "ply\nformat binary_little_endian 1.0\ncomment unit {}\nelement vertex {}\n"
      "property float x\nproperty float y\nproperty float z\n{}{}comment ",
      measuring_.calibrated() ? "mm" : "pixels, and encoder counts along y", points,
      rows_only_ ? "" : "property uchar intensity\n",
      measuring_.calibrated() ? "property float sigma_x\nproperty float sigma_z\n" : "");
  head.resize(kPlyHeadBytes - kEnd.size(), '-');
  return head.append(kEnd);
}

void PlyWriter::Write(const Frame& frame) {
  if (!start_) start_ = frame.encoder_stamp;
  const auto travelled =
      static_cast<double>(static_cast<std::int64_t>(frame.encoder_stamp - *start_));
  const auto y = static_cast<float>(measuring_.Y(travelled));
  for (const Point& point : frame.points) {
    // Without a calibration, columns and rows stand for themselves; up is up.
    file_.AppendNumber(measuring_.calibrated() ? point.x : static_cast<float>(point.column));
    file_.AppendNumber(y);
    file_.AppendNumber(measuring_.calibrated() ? point.z : -point.row);
    if (!rows_only_) file_.AppendNumber(point.peak);
    if (!measuring_.calibrated()) continue;
    file_.AppendNumber(point.x_sigma);
    file_.AppendNumber(point.z_sigma);
  }
  points_before_.push_back(points_before_.back() + frame.points.size());
  file_.EndRecord();
}

void PlyWriter::Finish() {
  file_.Flush();
  const std::string head = Head(points_before_[file_.records()]);
  file_.Rewrite(0, {reinterpret_cast<const std::uint8_t*>(head.data()), head.size()});
}

}  // namespace tool
