#pragma once

#include <cstddef>
#include <string>
#include <utility>
#include <vector>

#include "Samples.h"

namespace bench {

// The fewest points by which a straight line can be judged.
inline constexpr std::size_t kQuickPoints = 4;

// Times over a size: one tab-separated line per point, for bench/growth.gnuplot.
class GrowthSeries {
 public:
  explicit GrowthSeries(std::string name) : name_(std::move(name)) {}

  // Sizes ascend.
  void Add(double size, const Comparison& times, const Samples* plain = nullptr);
  // Without a bare way next to it, only its own worst time.
  void Add(double size, const Samples& library, const Samples& worst);

  // Prints a row after '#': how far the last quarter of the sizes lies from the straight line
  // through the first half, for the library and for the bare way. 1 is on the line. What exceeds
  // both 1 and the bare way is the library's own bend.
  void PrintLinearity() const;

 private:
  struct Point {
    double size, library, bare;
  };
  void Print(double plain, const Samples& ratio) const;  // the point added last
  double OffTheLine(double Point::*time) const;

  std::string name_;
  std::vector<Point> points_;
};

}  // namespace bench
