#pragma once

#include <cstddef>
#include <string>
#include <utility>
#include <vector>

#include "Samples.h"

namespace bench {

// As few as a straight line can be judged by.
inline constexpr std::size_t kQuickPoints = 4;

// Times over a size: a tab-separated line a point, for bench/growth.gnuplot.
class GrowthSeries {
 public:
  explicit GrowthSeries(std::string name) : name_(std::move(name)) {}

  // Sizes ascend.
  void Add(double size, const Comparison& times, const Samples* plain = nullptr);
  // With nothing beside it but its own worst.
  void Add(double size, const Samples& library, const Samples& worst);

  // A row behind '#': how far the last quarter of the sizes lies from the straight line
  // through the first half, the library's and the bare way's. 1 is on the line; a knee
  // of the library's own is what goes beyond that and beyond the bare way's.
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
