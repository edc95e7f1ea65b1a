#include "watch/Plot.h"

#include <algorithm>
#include <array>

namespace tool {
namespace {

// Braille: two dots across, four down, and the bit of each.
constexpr std::array<std::array<unsigned, 2>, 4> kDots{
    {{0x01, 0x08}, {0x02, 0x10}, {0x04, 0x20}, {0x40, 0x80}}};
constexpr unsigned kDotsAcross = 2;
constexpr unsigned kDotsDown = 4;
constexpr unsigned kBlank = 0x2800;

// As UTF-8.
std::string Character(unsigned dots) {
  const unsigned code = kBlank + dots;
  return {static_cast<char>(0xE0 | code >> 12), static_cast<char>(0x80 | (code >> 6 & 0x3F)),
          static_cast<char>(0x80 | (code & 0x3F))};
}

}  // namespace

std::vector<std::string> PlotProfile(const std::vector<Point>& points, const Region& frame,
                                     unsigned width, unsigned height) {
  std::vector<unsigned> cells(std::size_t{width} * height);
  const unsigned across = width * kDotsAcross;
  const unsigned down = height * kDotsDown;
  for (const Point& point : points) {
    if (frame.width == 0 || frame.height == 0 || across == 0 || down == 0) break;
    const unsigned column = std::max(point.column, frame.x) - frame.x;
    const unsigned x = std::min(column * across / frame.width, across - 1);
    const double at = (point.row - static_cast<double>(frame.y)) * down / frame.height;
    const unsigned y = std::min(static_cast<unsigned>(std::max(at, 0.0)), down - 1);
    cells[std::size_t{y / kDotsDown} * width + x / kDotsAcross] |=
        kDots[y % kDotsDown][x % kDotsAcross];
  }
  std::vector<std::string> lines(height);
  for (std::size_t i = 0; i < cells.size(); ++i) {
    lines[i / width] += cells[i] == 0 ? " " : Character(cells[i]);
  }
  return lines;
}

}  // namespace tool
