#include "Growth.h"

#include <algorithm>
#include <cstdio>
#include <utility>

namespace bench {

namespace {

constexpr double kMostBend = 1.2;

}  // namespace

void GrowthSeries::Add(double size, const Comparison& times, const Samples* plain) {
  points_.push_back({size, times.library.Median(), times.bare.Median()});
  Print(plain != nullptr ? plain->Median() : 0, times.ratio);
}

void GrowthSeries::Add(double size, const Samples& library, const Samples& worst) {
  points_.push_back({size, library.Median(), 0});
  Print(worst.Median(), {});
}

void GrowthSeries::Print(double plain, const Samples& ratio) const {
  const Point& point = points_.back();
  std::printf("%s\t%g\t%g\t%g\t%g\t%g\t%g\t%g\n", name_.c_str(), point.size, point.library,
              point.bare, plain, ratio.Median(), ratio.Quantile(0.1), ratio.Quantile(0.9));
  std::fflush(stdout);
}

// Splits by size (one half, three quarters), not by number of points, because some series have most
// of their points at small sizes.
double GrowthSeries::OffTheLine(double Point::*time) const {
  const double largest = points_.back().size;
  double n = 0, sum_x = 0, sum_y = 0, sum_xx = 0, sum_xy = 0;
  for (const Point& point : points_) {
    if (point.size > largest / 2) break;
    n += 1;
    sum_x += point.size;
    sum_y += point.*time;
    sum_xx += point.size * point.size;
    sum_xy += point.size * (point.*time);
  }
  const double slope = (n * sum_xy - sum_x * sum_y) / (n * sum_xx - sum_x * sum_x);
  const double at_zero = (sum_y - slope * sum_x) / n;
  Samples off;
  for (const Point& point : points_) {
    if (point.size >= 0.75 * largest) off.Add(point.*time / (at_zero + slope * point.size));
  }
  return off.Median();
}

void GrowthSeries::PrintLinearity() const {
  const double library = OffTheLine(&Point::library);
  const double bare = points_.back().bare > 0 ? OffTheLine(&Point::bare) : 1;
  const double own = library / std::max(1.0, bare);
  std::printf("# | %-9s | %.2f | %.2f | %.2f | <= %g | %s |\n", name_.c_str(), library, bare, own,
              kMostBend, own <= kMostBend ? "met" : "missed");
  std::fflush(stdout);
}

}  // namespace bench
