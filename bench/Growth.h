#pragma once

#include <cstddef>
#include <string>
#include <utility>
#include <vector>

#include "Samples.h"

namespace bench {

// The fewest points needed to judge whether they lie on a straight line.
inline constexpr std::size_t kQuickPoints = 4;

// Prints times against a size, one tab-separated line per point, for bench/growth.gnuplot.
class GrowthSeries {
 public:
  explicit GrowthSeries(std::string name) : name_(std::move(name)) {}

  // Add points in ascending order of size.
  void Add(double size, const Comparison& times, const Samples* plain = nullptr);
  // For a series without a bare equivalent to compare with: adds only the library's own worst time.
  void Add(double size, const Samples& library, const Samples& worst);

  // Prints a row after '#': how far the last quarter of the sizes lies from the straight line
  // through the first half, for the library and for the bare equivalent. 1 is on the line. If the
  // library's value exceeds both 1 and the bare equivalent's value, its own growth is not linear.
  void PrintLinearity() const;

 private:
  struct Point {
    double size, library, bare;
  };
  void Print(double plain, const Samples& ratio) const;  // prints the last point added
  double OffTheLine(double Point::*time) const;

  std::string name_;
  std::vector<Point> points_;
};

}  // namespace bench
