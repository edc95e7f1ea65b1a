#include "calibrate/Field.h"

#include <fmt/core.h>

#include <algorithm>
#include <climits>
#include <cmath>

namespace tool::calibrate {
namespace {

using Json = nlohmann::ordered_json;
using Places = std::vector<Sample>;

// Twice the area of a triangle; positive where the corners turn from the columns' direction to the
// rows'.
double Turn(const Sample& a, const Sample& b, const Sample& c) {
  return (b.column - a.column) * (c.row - a.row) - (b.row - a.row) * (c.column - a.column);
}

// Corners in the direction of Turn(): first along one side, then back along the other.
Places HullOf(Places places) {
  std::sort(places.begin(), places.end(), [](const Sample& a, const Sample& b) {
    return a.column != b.column ? a.column < b.column : a.row < b.row;
  });
  Places hull;
  const auto go_along = [&hull](auto begin, auto end) {
    const std::size_t start = hull.size();
    for (auto place = begin; place != end; ++place) {
      while (hull.size() >= start + 2 && Turn(hull[hull.size() - 2], hull.back(), *place) <= 0) {
        hull.pop_back();
      }
      hull.push_back(*place);
    }
    hull.pop_back();  // the other side begins with it
  };
  if (places.size() < 3) return {};
  go_along(places.begin(), places.end());
  go_along(places.rbegin(), places.rend());
  return hull;
}

// Leaves those corners out first that cost the least area.
void Simplify(Places& hull, std::size_t most) {
  while (hull.size() > most) {
    const std::size_t n = hull.size();
    std::size_t least = 0;
    double least_area = HUGE_VAL;
    for (std::size_t i = 0; i < n; ++i) {
      const double area = Turn(hull[(i + n - 1) % n], hull[i], hull[(i + 1) % n]);
      if (area >= least_area) continue;
      least_area = area;
      least = i;
    }
    hull.erase(hull.begin() + static_cast<std::ptrdiff_t>(least));
  }
}

// How far a place lies outside an edge, pixels.
double Outside(const Sample& from, const Sample& to, const Sample& place) {
  return -Turn(from, to, place) / std::hypot(to.column - from.column, to.row - from.row);
}

// Moves all edges out by what the corners left cut off the hull: by a pixel at most, and by two at
// a sharp corner.
Places Widened(const Places& corners, const Places& hull) {
  constexpr double kMostOfAnEdge = 1;
  constexpr double kMostOfACorner = 2;
  const std::size_t n = corners.size();
  double out = 0;
  for (std::size_t i = 0; i < n; ++i) {
    for (const Sample& place : hull) {
      out = std::max(out, Outside(corners[i], corners[(i + 1) % n], place));
    }
  }
  out = std::min(out, kMostOfAnEdge);
  Places widened = corners;
  for (std::size_t i = 0; i < n; ++i) {
    const Sample& before = corners[(i + n - 1) % n];
    const Sample& at = corners[i];
    const Sample& after = corners[(i + 1) % n];
    const double c1 = at.column - before.column, r1 = at.row - before.row;
    const double c2 = after.column - at.column, r2 = after.row - at.row;
    const double off1 = out * std::hypot(c1, r1);
    const double off2 = out * std::hypot(c2, r2);
    const double turn = c1 * r2 - r1 * c2;
    const double columns = (c1 * off2 - c2 * off1) / turn;
    const double rows = (r1 * off2 - r2 * off1) / turn;
    const double shrink = std::min(1.0, kMostOfACorner / std::hypot(columns, rows));
    if (!std::isfinite(shrink)) continue;
    widened[i] = {at.column + shrink * columns, at.row + shrink * rows};
  }
  return widened;
}

template <typename Number>
void Widen(Number (&range)[2], Number number) {
  range[0] = std::min(range[0], number);
  range[1] = std::max(range[1], number);
}

}  // namespace

void SetField(const Places& places, tessaline_calibration& c) {
  const Places whole = HullOf(places);
  Places hull = whole;
  Simplify(hull, TESSALINE_FIELD_CORNERS);
  hull = Widened(hull, whole);
  for (Sample& corner : hull) {
    corner.column = std::clamp(std::round(corner.column), 0.0, c.sensor_width - 1);
    corner.row = std::clamp(std::round(corner.row), 0.0, c.sensor_height - 1);
  }
  hull = HullOf(hull);  // rounded, it may have dents
  c.field_corners = 0;
  for (const Sample& corner : hull) {
    c.field[c.field_corners++] = {static_cast<std::uint16_t>(corner.column),
                                  static_cast<std::uint16_t>(corner.row)};
  }
}

Extent ExtentOf(const tessaline_calibration& c) {
  constexpr int kPlaces = 16;  // along an edge, which the lens bends
  Extent extent{
      {INT_MAX, INT_MIN}, {INT_MAX, INT_MIN}, {HUGE_VAL, -HUGE_VAL}, {HUGE_VAL, -HUGE_VAL}};
  for (std::uint32_t i = 0; i < c.field_corners; ++i) {
    const tessaline_pixel& from = c.field[i];
    const tessaline_pixel& to = c.field[(i + 1) % c.field_corners];
    Widen(extent.columns, int{from.column});
    Widen(extent.rows, int{from.row});
    for (int k = 0; k < kPlaces; ++k) {
      tessaline_measurement point{};
      const double part = static_cast<double>(k) / kPlaces;
      if (tessaline_point_to_mm(&c, std::lerp(from.column, to.column, part),
                                std::lerp(from.row, to.row, part), &point) != 0) {
        continue;
      }
      Widen(extent.x, point.x);
      Widen(extent.z, point.z);
    }
  }
  return extent;
}

std::string FieldInWords(const tessaline_calibration& c) {
  if (c.field_corners == 0) return "unknown";
  const Extent e = ExtentOf(c);
  return fmt::format(
      "columns {} to {}, rows {} to {}: x {:.1f} to {:.1f} mm, z {:.1f} to {:.1f} mm", e.columns[0],
      e.columns[1], e.rows[0], e.rows[1], e.x[0], e.x[1], e.z[0], e.z[1]);
}

Json FieldCorners(const tessaline_calibration& c) {
  if (c.field_corners == 0) return nullptr;
  Json corners = Json::array();
  for (std::uint32_t i = 0; i < c.field_corners; ++i) {
    corners.push_back({c.field[i].column, c.field[i].row});
  }
  return corners;
}

Json FieldRange(const tessaline_calibration& c) {
  if (c.field_corners == 0) return nullptr;
  const Extent e = ExtentOf(c);
  return {{"columns", e.columns}, {"rows", e.rows}, {"x_mm", e.x}, {"z_mm", e.z}};
}

}  // namespace tool::calibrate
