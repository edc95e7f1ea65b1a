#include "capture/FrameReader.h"

#include <cstring>

namespace tool {
namespace {

template <typename Record>
Record Take(const std::uint8_t*& at) {
  Record record;
  std::memcpy(&record, at, sizeof record);
  at += sizeof record;
  return record;
}

constexpr double FullRow(std::uint32_t row) {
  return row / static_cast<double>(TESSALINE_FULL_ROW_STEPS);
}
constexpr double ShortRow(std::uint16_t row) {
  return row / static_cast<double>(TESSALINE_SHORT_ROW_STEPS);
}

std::vector<Point> ReadPoints(const std::uint8_t* at, std::size_t count, std::size_t point_bytes) {
  std::vector<Point> points;
  points.reserve(count);
  for (unsigned n = 0; n < count; ++n) {
    if (point_bytes == sizeof(tessaline_row_point)) {
      const auto point = Take<tessaline_row_point>(at);
      if (point.row != TESSALINE_NO_LINE) points.push_back({n, ShortRow(point.row), 255, 0});
    } else if (point_bytes == sizeof(tessaline_short_point)) {
      const auto point = Take<tessaline_short_point>(at);
      points.push_back({point.column, ShortRow(point.row), 255, 0});
    } else {
      const auto point = Take<tessaline_full_point>(at);
      points.push_back({point.column, FullRow(point.row), point.peak, point.width});
    }
  }
  return points;
}

}  // namespace

bool ReadStrips(unsigned strips, std::span<const std::uint8_t> bytes, std::size_t point_bytes,
                const std::function<void(const Frame&)>& use) {
  const std::uint8_t* at = bytes.data();
  const std::uint8_t* const end = at + bytes.size();
  for (unsigned i = 0; i < strips; ++i) {
    const std::uint8_t* const begin = at;
    if (static_cast<std::size_t>(end - at) < sizeof(tessaline_strip_header)) return false;
    const auto header = Take<tessaline_strip_header>(at);
    if (header.point_count > static_cast<std::size_t>(end - at) / point_bytes) return false;
    Frame frame{};
    frame.id = header.frame_id;
    frame.time_stamp = header.time_stamp;
    frame.encoder_stamp = header.encoder_stamp;
    frame.points = ReadPoints(at, header.point_count, point_bytes);
    at += header.point_count * point_bytes;
    frame.raw = {begin, at};
    use(frame);
  }
  return true;
}

Frame ReadImage(unsigned width, unsigned height, std::span<const std::uint8_t> bytes) {
  Frame frame{};
  frame.width = width;
  frame.height = height;
  frame.raw = bytes;
  frame.pixels = bytes.first(std::size_t{width} * height);
  const std::uint8_t* at = bytes.data() + frame.pixels.size();
  const auto header = Take<tessaline_image_header>(at);
  frame.id = header.frame_id;
  frame.time_stamp = header.time_stamp;
  frame.encoder_stamp = header.encoder_stamp;
  return frame;
}

}  // namespace tool
