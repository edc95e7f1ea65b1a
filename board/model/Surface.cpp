#include "model/Surface.h"

#include <algorithm>
#include <utility>

namespace board {
namespace {

constexpr double kNothing = 1e-9;  // mm, or the same of a direction

// The direction in which a source sees a point: x per mm of depth.
double Direction(PlanePoint source, PlanePoint point) {
  return (point.x - source.x) / (source.z - point.z);
}

PlanePoint Along(const Face& face, double part) {
  return {face.from.x + part * (face.to.x - face.from.x),
          face.from.z + part * (face.to.z - face.from.z)};
}

// How far along a face, 0 .. 1, a direction meets it.
double Meets(PlanePoint source, const Face& face, double direction) {
  const double dx = face.to.x - face.from.x;
  const double dz = face.to.z - face.from.z;
  return (direction * (source.z - face.from.z) - (face.from.x - source.x)) / (dx + direction * dz);
}

std::pair<double, double> Directions(PlanePoint source, const Face& face) {
  return std::minmax({Direction(source, face.from), Direction(source, face.to)});
}

// Appends what is left of a face beside and before another one.
void AppendRest(const Face& face, const Face& other, PlanePoint source, std::vector<Face>& rest) {
  const auto [first, last] = Directions(source, face);
  const auto [other_first, other_last] = Directions(source, other);
  const double from = std::max(first, other_first);
  const double to = std::min(last, other_last);
  const double middle = (from + to) / 2;
  const bool hidden =
      to - from > kNothing && Along(other, Meets(source, other, middle)).z >
                                  Along(face, Meets(source, face, middle)).z + kNothing;
  if (!hidden) {
    rest.push_back(face);
    return;
  }
  const auto [begin, end] = std::minmax({Meets(source, face, from), Meets(source, face, to)});
  if (begin > kNothing) rest.push_back({face.from, Along(face, begin), face.wall});
  if (end < 1 - kNothing) rest.push_back({Along(face, end), face.to, face.wall});
}

}  // namespace

std::optional<double> Surface::Height(double x) const {
  std::optional<double> height;
  for (const Face& face : faces) {
    if (face.wall || x < face.from.x || x >= face.to.x) continue;
    const double z = Along(face, (x - face.from.x) / (face.to.x - face.from.x)).z;
    height = std::max(height.value_or(z), z);
  }
  return height;
}

std::vector<Face> PartsInView(const std::vector<Face>& faces, const Surface& surface,
                              PlanePoint source) {
  std::vector<Face> in_view;
  std::vector<Face> parts;
  std::vector<Face> rest;
  for (const Face& face : faces) {
    parts.assign(1, face);
    for (const Face& other : surface.faces) {
      rest.clear();
      for (const Face& part : parts) AppendRest(part, other, source, rest);
      parts.swap(rest);
    }
    in_view.insert(in_view.end(), parts.begin(), parts.end());
  }
  return in_view;
}

}  // namespace board
