#pragma once

#include <array>
#include <cstdint>

namespace board {

// A place in the laser plane, mm: x across, z up.
struct PlanePoint {
  double x, z;
};

// A simulated head: a camera that looks at the vertical laser plane from the side, through a lens
// that distorts. Everything about it follows from a seed. docs/virtual-board.md has the formulas.
class Head {
 public:
  Head(std::uint64_t seed, unsigned sensor_width, unsigned sensor_height);

  std::uint64_t Seed() const { return seed_; }
  unsigned Width() const { return width_; }
  unsigned Height() const { return height_; }
  // Where the camera is, seen along the belt; and how far from the laser plane, on the side where
  // the belt has passed.
  PlanePoint Camera() const { return camera_; }
  double CameraAway() const { return away_; }

  // What a pixel of the full sensor sees in the laser plane.
  PlanePoint ToMillimetres(double column, double row) const;

  // A straight line in the laser plane as the camera sees it: U + V slope + offset = 0 in the
  // image without distortion.
  struct ImageLine {
    double u, v, offset;
  };
  ImageLine Image(PlanePoint from, PlanePoint to) const;
  // The row in which a column sees it.
  double RowOf(const ImageLine& line, double column) const;
  // The row in which a column sees a circle, from above; NaN if it does not.
  double RowOfCircle(PlanePoint centre, double radius, double column) const;

  // A range of columns that surely contains the image of a point of the laser plane, if it is on
  // the sensor.
  struct Columns {
    double first, last;
  };
  Columns ColumnsOf(PlanePoint point) const;

 private:
  struct Stretch {
    double factor, slope;  // L(q) and dL/dq
  };
  Stretch StretchAt(double q) const;
  double Across(double column) const { return (column - centre_column_) / unit_; }

  std::uint64_t seed_;
  unsigned width_, height_;
  PlanePoint camera_;
  double away_;
  double centre_column_, centre_row_;
  double unit_;                       // pixels: half of the sensor's width
  std::array<double, 3> distortion_;  // k1, k2, k3
  double least_stretch_, most_stretch_;
  std::array<std::array<double, 3>, 3> to_image_;  // laser plane to image without distortion
  std::array<std::array<double, 3>, 3> to_plane_;  // its inverse
};

}  // namespace board
