#include "serve/PictureMessage.h"

#include <algorithm>
#include <bit>
#include <cstdint>
#include <cstring>

namespace tool::serve {
namespace {

static_assert(std::endian::native == std::endian::little, "the header is copied as it is");

struct Header {
  char magic[4];
  std::uint16_t version = 1;
  std::uint16_t header_bytes = 64;
  std::uint64_t frame_id;
  std::uint64_t time_stamp;
  std::uint64_t encoder_stamp;
  double host_seconds;
  std::uint32_t first;   // points, or width
  std::uint32_t second;  // unit, or height
  std::uint16_t region[4];
  std::uint32_t step;
  std::uint32_t generation;
};
static_assert(sizeof(Header) == 64);

Header HeaderOf(const char* magic, const Frame& frame, const View& view, double host_seconds) {
  Header header{};
  std::memcpy(header.magic, magic, sizeof header.magic);
  header.frame_id = frame.id;
  header.time_stamp = frame.time_stamp;
  header.encoder_stamp = frame.encoder_stamp;
  header.host_seconds = host_seconds;
  const Region& region = view.region;
  const std::array sides{region.x, region.y, region.width, region.height};
  std::transform(sides.begin(), sides.end(), header.region,
                 [](unsigned side) { return static_cast<std::uint16_t>(side); });
  header.generation = view.generation;
  return header;
}

template <typename T>
void Append(std::string& message, const T* values, std::size_t count) {
  message.append(reinterpret_cast<const char*>(values), count * sizeof(T));
}

}  // namespace

std::string ProfileMessage(const Frame& frame, const View& view, double host_seconds) {
  const auto& points = frame.points;
  Header header = HeaderOf("TSLP", frame, view, host_seconds);
  header.first = static_cast<std::uint32_t>(points.size());
  header.second = view.measuring.calibrated() ? 1 : 0;
  std::string message;
  message.reserve(sizeof header + points.size() * (2 * sizeof(float) + 1));
  Append(message, &header, 1);
  const bool mm = view.measuring.calibrated();
  for (const Point& point : points) {
    const float x = mm ? point.x : static_cast<float>(point.column);
    Append(message, &x, 1);
  }
  for (const Point& point : points) Append(message, mm ? &point.z : &point.row, 1);
  for (const Point& point : points) Append(message, &point.peak, 1);
  return message;
}

std::string ImageMessage(const Frame& frame, const View& view, double host_seconds, unsigned most) {
  const unsigned step = std::max(1U, (std::max(frame.width, frame.height) + most - 1) / most);
  const unsigned width = frame.width / step;
  const unsigned height = frame.height / step;
  Header header = HeaderOf("TSLI", frame, view, host_seconds);
  header.first = width;
  header.second = height;
  header.step = step;
  std::string message;
  message.reserve(sizeof header + std::size_t{width} * height);
  Append(message, &header, 1);
  if (step == 1) {
    Append(message, frame.pixels.data(), frame.pixels.size());
    return message;
  }
  std::vector<std::uint8_t> line(width);
  for (unsigned row = 0; row < height; ++row) {
    const std::uint8_t* const from = &frame.pixels[std::size_t{row} * step * frame.width];
    for (unsigned column = 0; column < width; ++column) line[column] = from[column * step];
    Append(message, line.data(), line.size());
  }
  return message;
}

}  // namespace tool::serve
