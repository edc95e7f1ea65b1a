#include "capture/FrameReader.h"

#include <cstring>

namespace tool {
namespace {

constexpr std::uint16_t kNoLine = 0xFFFF;
constexpr double kShortRowSteps = 32;
constexpr double kFullRowSteps = 65536;

template <typename Number>
Number Take(const std::uint8_t*& at) {
  Number number;
  std::memcpy(&number, at, sizeof number);
  at += sizeof number;
  return number;
}

std::vector<Point> ReadPoints(const std::uint8_t* at, std::size_t count, std::size_t point_bytes) {
  std::vector<Point> points;
  points.reserve(count);
  for (unsigned n = 0; n < count; ++n) {
    if (point_bytes == 2) {
      const auto row = Take<std::uint16_t>(at);
      if (row != kNoLine) points.push_back({n, row / kShortRowSteps, 255, 0});
    } else if (point_bytes == 4) {
      const unsigned column = Take<std::uint16_t>(at);
      points.push_back({column, Take<std::uint16_t>(at) / kShortRowSteps, 255, 0});
    } else {
      const unsigned column = Take<std::uint16_t>(at);
      const auto peak = Take<std::uint8_t>(at);
      const auto width = Take<std::uint8_t>(at);
      points.push_back({column, Take<std::uint32_t>(at) / kFullRowSteps, peak, width});
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
    if (static_cast<std::size_t>(end - at) < kFrameHeaderBytes) return false;
    Frame frame{};
    frame.id = Take<std::uint64_t>(at);
    frame.time_stamp = Take<std::uint64_t>(at);
    frame.encoder_stamp = Take<std::uint64_t>(at);
    const auto points = Take<std::uint64_t>(at);
    if (points > static_cast<std::size_t>(end - at) / point_bytes) return false;
    frame.points = ReadPoints(at, points, point_bytes);
    at += points * point_bytes;
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
  frame.id = Take<std::uint64_t>(at);
  frame.time_stamp = Take<std::uint64_t>(at);
  frame.encoder_stamp = Take<std::uint64_t>(at);
  return frame;
}

}  // namespace tool
