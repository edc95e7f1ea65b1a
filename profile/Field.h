#pragma once

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <limits>

#include "tessaline/profile.h"

namespace profile {

// Of an uncertainty.
template <typename Real>
constexpr Real kUnknown = std::numeric_limits<Real>::quiet_NaN();

// Twice the area of a triangle: positive if its corners turn from the columns' direction to the
// rows'.
inline std::int64_t Turn(const tessaline_pixel& a, const tessaline_pixel& b,
                         const tessaline_pixel& c) {
  return std::int64_t{b.column - a.column} * (c.row - a.row) -
         std::int64_t{b.row - a.row} * (c.column - a.column);
}

// The corner that follows.
inline const tessaline_pixel& Next(const tessaline_calibration& c, std::size_t corner) {
  return c.field[corner + 1 < c.field_corners ? corner + 1 : 0];
}

// In which direction the corners follow each other: as Turn() counts. 0 without any area.
inline int Direction(const tessaline_calibration& c) {
  std::int64_t area = 0;
  for (std::size_t i = 2; i < c.field_corners; ++i) {
    area += Turn(c.field[0], c.field[i - 1], c.field[i]);
  }
  return int{area > 0} - int{area < 0};
}

// The field is unknown, or a convex area on the sensor. Every profile is checked, so the loops have
// one length, and vectors.
inline bool IsField(const tessaline_calibration& c) {
  constexpr std::size_t kMost = TESSALINE_FIELD_CORNERS;
  if (c.field_corners == 0) return true;
  if (c.field_corners > kMost) return false;
  double columns[kMost + 1];
  double rows[kMost + 1];
  int wrong = 0;
  for (std::size_t i = 0; i <= kMost; ++i) {
    const tessaline_pixel& corner = c.field[i < c.field_corners ? i : 0];
    columns[i] = corner.column;
    rows[i] = corner.row;
    wrong |= int{columns[i] >= c.sensor_width} | int{rows[i] >= c.sensor_height};
  }
  const double direction = Direction(c);
  // No corner lies beyond any edge.
  for (std::size_t i = 0; i < kMost; ++i) {
    const double along_columns = direction * (columns[i + 1] - columns[i]);
    const double along_rows = direction * (rows[i + 1] - rows[i]);
    for (std::size_t k = 0; k < kMost; ++k) {
      wrong |= int{along_columns * (rows[k] - rows[i]) < along_rows * (columns[k] - columns[i])};
    }
  }
  return direction != 0 && wrong == 0;
}

// The field's edges as half planes. Always the same number of them, so that a loop over points
// has no other loop inside: those left over hold every point.
template <typename Real>
class Polygon {
 public:
  // The field is known.
  explicit Polygon(const tessaline_calibration& c) {
    const int direction = Direction(c);
    for (std::size_t i = 0; i < c.field_corners; ++i) {
      const tessaline_pixel& from = c.field[i];
      const int columns = direction * (Next(c, i).column - from.column);
      const int rows = direction * (Next(c, i).row - from.row);
      by_column_[i] = static_cast<Real>(-rows);
      by_row_[i] = static_cast<Real>(columns);
      offset_[i] = static_cast<Real>(static_cast<double>(rows) * from.column -
                                     static_cast<double>(columns) * from.row +
                                     kOnTheEdge * (std::abs(columns) + std::abs(rows)));
    }
  }

  bool Holds(Real column, Real row) const {
    Real inside = 0;
    for (std::size_t i = 0; i < TESSALINE_FIELD_CORNERS; ++i) {
      inside = std::min(inside, by_column_[i] * column + (by_row_[i] * row + offset_[i]));
    }
    return inside >= 0;
  }

 private:
  // Pixels: more than single precision rounds.
  static constexpr double kOnTheEdge = 1.0 / 64;

  // Of the distance from each edge times its length, positive inside.
  Real by_column_[TESSALINE_FIELD_CORNERS] = {};
  Real by_row_[TESSALINE_FIELD_CORNERS] = {};
  Real offset_[TESSALINE_FIELD_CORNERS] = {};
};

// The field of a calibration that does not know it.
struct Everywhere {
  explicit Everywhere(const tessaline_calibration&) {}
  bool Holds(float, float) const { return true; }
};

// Whether the place lies in the field, or that is not known. Of any calibration.
inline bool IsInField(const tessaline_calibration& c, double column, double row) {
  if (c.field_corners == 0 || !IsField(c)) return true;
  return Polygon<double>(c).Holds(column, row);
}

}  // namespace profile
