#include "Calibration.h"

#include <algorithm>
#include <cmath>
#include <iterator>
#include <limits>

#include "Field.h"
#include "PlaneMap.h"
#include "Sigma.h"

namespace profile {

namespace {

using Map = PlaneMap<double>;

constexpr double kMostPixels = 32768;
// Below this part of what it is made of, a determinant is rounding.
constexpr double kDegenerate = 1e-9;
constexpr double kHalfPixel = 0.5;

bool IsFinite(const double* begin, const double* end) {
  return std::all_of(begin, end, [](double number) { return std::isfinite(number); });
}

bool AllFinite(const tessaline_calibration& c) {
  const double single[] = {c.sensor_width,    c.sensor_height, c.centre_column,
                           c.centre_row,      c.column_sigma,  c.row_sigma,
                           c.pixels_per_unit, c.x_sigma,       c.z_sigma};
  return IsFinite(std::begin(single), std::end(single)) &&
         IsFinite(std::begin(c.distortion), std::end(c.distortion)) &&
         IsFinite(std::begin(c.plane), std::end(c.plane));
}

// The sensor's edges, with the outer halves of its outermost pixels.
struct Edges {
  explicit Edges(const tessaline_calibration& c)
      : right(c.sensor_width - kHalfPixel), bottom(c.sensor_height - kHalfPixel) {}

  bool Hold(double column, double row) const {
    return column >= left && column <= right && row >= top && row <= bottom;
  }

  double left = -kHalfPixel, top = -kHalfPixel;
  double right, bottom;
};

// The largest q = u u + v v of the sensor: that of a corner.
double LargestSquare(const Map& map, const Edges& edges) {
  const auto farthest = [](double from, double to, double centre) {
    return std::max(std::abs(from - centre), std::abs(to - centre));
  };
  const double u = farthest(edges.left, edges.right, map.centre_column) * map.per_pixel;
  const double v = farthest(edges.top, edges.bottom, map.centre_row) * map.per_pixel;
  return u * u + v * v;
}

// How the undistorted radius grows with the radius: d(r L(r r)) / dr, as a function of q = r r.
double Growth(const Map& map, double q) {
  return 1 + q * (3 * map.k1 + q * (5 * map.k2 + q * 7 * map.k3));
}

// Growth is a cubic in q: it is lowest at an end of the range, or where its derivative is 0.
bool GrowsUpTo(const Map& map, double most) {
  // Every profile is checked, and nearly every lens is one of these.
  const double at_most =
      most * (3 * std::abs(map.k1) + most * (5 * std::abs(map.k2) + most * 7 * std::abs(map.k3)));
  if (at_most < 1) return true;
  if (!(Growth(map, 0) > 0 && Growth(map, most) > 0)) return false;
  const double a = 21 * map.k3;
  const double b = 10 * map.k2;
  const double c = 3 * map.k1;
  const double under_root = b * b - 4 * a * c;
  if (under_root < 0) return true;
  // Without the difference of nearly equal numbers.
  const double sum = -0.5 * (b + std::copysign(std::sqrt(under_root), b));
  for (const double q : {a != 0 ? sum / a : 0, sum != 0 ? c / sum : 0}) {
    if (q > 0 && q < most && !(Growth(map, q) > 0)) return false;
  }
  return true;
}

// The sensor lies before the horizon, in single precision too, in which profiles are measured.
// `reach` is how far the undistorted sensor reaches from the centre.
bool SeesTheSensor(const Map& map, const PlaneMap<float>& single, const Edges& edges,
                   double reach) {
  // Here too, nearly every head is clear at once.
  constexpr double kClear = 0.01;
  constexpr double kUsual = 1e9;  // of numbers in millimetres
  const double sizes = std::abs(map.x0) + std::abs(map.z0) + std::abs(map.xu) + std::abs(map.xv) +
                       std::abs(map.zu) + std::abs(map.zv);
  const double fall = std::hypot(map.wu, map.wv) * reach;
  if (fall < 1 - kClear && reach < kUsual && sizes < kUsual) return true;

  // The depth is linear in the undistorted image, so it is lowest somewhere on the edge.
  constexpr int kPlaces = 16;
  const auto sees = [&](double column, double row) {
    const auto plane =
        single.Project(single.At(static_cast<float>(column), static_cast<float>(row)));
    return map.Project(map.At(column, row)).depth > kClear && plane.depth > 0 &&
           std::isfinite(plane.x) && std::isfinite(plane.z);
  };
  for (int i = 0; i <= kPlaces; ++i) {
    const double column = edges.left + (edges.right - edges.left) * i / kPlaces;
    const double row = edges.top + (edges.bottom - edges.top) * i / kPlaces;
    if (!sees(column, edges.top) || !sees(column, edges.bottom) || !sees(edges.left, row) ||
        !sees(edges.right, row)) {
      return false;
    }
  }
  return true;
}

// The radius whose undistorted one is given; NaN when the sensor ends before.
double RadiusOf(const Map& map, double undistorted, double largest_square) {
  double low = 0;
  double high = std::sqrt(largest_square);
  const auto too_far = [&](double radius) {
    const double q = radius * radius;
    return radius * (1 + q * (map.k1 + q * (map.k2 + q * map.k3))) - undistorted;
  };
  if (!(too_far(high) >= 0)) return std::numeric_limits<double>::quiet_NaN();
  double radius = std::min(undistorted, high);
  // Newton's steps double the digits; one that leaves the bracket is replaced by its middle.
  constexpr int kEnough = 60;
  for (int i = 0; i < kEnough; ++i) {
    const double error = too_far(radius);
    (error > 0 ? high : low) = radius;
    double next = radius - error / Growth(map, radius * radius);
    if (!(next > low && next < high)) next = 0.5 * (low + high);
    if (next == radius) break;
    radius = next;
  }
  return radius;
}

}  // namespace

bool IsPossible(const tessaline_calibration& c) {
  if (!AllFinite(c)) return false;
  const auto sensor = [](double size) { return size >= 1 && size <= kMostPixels; };
  if (!sensor(c.sensor_width) || !sensor(c.sensor_height)) return false;
  // A profile is measured in single precision, which larger numbers do not fit.
  if (!(c.pixels_per_unit >= 1) || c.pixels_per_unit > kMostPixels || !(c.plane[8] > 0))
    return false;
  for (const double sigma : {c.column_sigma, c.row_sigma, c.x_sigma, c.z_sigma}) {
    if (sigma < 0 || sigma > kMostPixels) return false;
  }
  const auto near_sensor = [](double centre, double size) {
    return centre >= -size && centre <= 2 * size;
  };
  if (!near_sensor(c.centre_column, c.sensor_width) ||
      !near_sensor(c.centre_row, c.sensor_height)) {
    return false;
  }
  if (!IsField(c)) return false;
  const Map map(c);
  const double determinant = map.xu * map.zv - map.xv * map.zu;
  const double size = std::abs(map.xu * map.zv) + std::abs(map.xv * map.zu);
  if (!std::isfinite(size) || !(std::abs(determinant) > kDegenerate * size)) return false;
  const Edges edges(c);
  const double most = LargestSquare(map, edges);
  if (!GrowsUpTo(map, most)) return false;
  const double reach = std::sqrt(most) * (1 + most * (map.k1 + most * (map.k2 + most * map.k3)));
  return SeesTheSensor(map, PlaneMap<float>(c), edges, reach);
}

}  // namespace profile

int tessaline_calibration_check(const struct tessaline_calibration* calibration) {
  if (calibration == nullptr) return TESSALINE_PROFILE_ARGUMENT;
  return profile::IsPossible(*calibration) ? TESSALINE_PROFILE_OK : TESSALINE_PROFILE_CALIBRATION;
}

int tessaline_point_to_mm(const struct tessaline_calibration* calibration, double column,
                          double row, struct tessaline_measurement* point) {
  if (calibration == nullptr || point == nullptr) return TESSALINE_PROFILE_ARGUMENT;
  const profile::Map map(*calibration);
  const auto image = map.At(column, row);
  const auto plane = map.Project(image);
  if (!(plane.depth > 0) || !std::isfinite(plane.x) || !std::isfinite(plane.z)) {
    return TESSALINE_PROFILE_OUTSIDE;
  }
  const auto by = map.DerivativesAt(image, plane);
  const profile::Sigma<double> sigma(*calibration);
  const bool seen = profile::IsInField(*calibration, column, row);
  *point = {.x = map.x0 + plane.x,
            .z = map.z0 + plane.z,
            .x_sigma = seen ? sigma.OfX(by.x_column, by.x_row) : profile::kUnknown<double>,
            .z_sigma = seen ? sigma.OfZ(by.z_column, by.z_row) : profile::kUnknown<double>,
            .x_column = by.x_column,
            .x_row = by.x_row,
            .z_column = by.z_column,
            .z_row = by.z_row};
  return TESSALINE_PROFILE_OK;
}

int tessaline_point_to_pixel(const struct tessaline_calibration* calibration, double x, double z,
                             double* column, double* row) {
  using namespace profile;  // NOLINT(google-build-using-namespace)
  if (calibration == nullptr || column == nullptr || row == nullptr) {
    return TESSALINE_PROFILE_ARGUMENT;
  }
  const Map map(*calibration);
  // Multiplied out, the two equations of the map are linear in U and V.
  const double dx = x - map.x0;
  const double dz = z - map.z0;
  const double xu = map.xu - dx * map.wu;
  const double xv = map.xv - dx * map.wv;
  const double zu = map.zu - dz * map.wu;
  const double zv = map.zv - dz * map.wv;
  const double determinant = xu * zv - xv * zu;
  const double u = (dx * zv - dz * xv) / determinant;
  const double v = (dz * xu - dx * zu) / determinant;

  const Edges edges(*calibration);
  const double undistorted = std::hypot(u, v);
  const double radius = RadiusOf(map, undistorted, LargestSquare(map, edges));
  const double shrink = undistorted > 0 ? radius / undistorted : 1;
  const double at_column = map.centre_column + u * shrink / map.per_pixel;
  const double at_row = map.centre_row + v * shrink / map.per_pixel;
  if (!edges.Hold(at_column, at_row)) return TESSALINE_PROFILE_OUTSIDE;
  *column = at_column;
  *row = at_row;
  return TESSALINE_PROFILE_OK;
}
