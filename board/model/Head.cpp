#include "model/Head.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <numbers>

#include "model/Random.h"
#include "model/Scene.h"

namespace board {
namespace {

using Vector = std::array<double, 3>;
using Matrix = std::array<Vector, 3>;

// Limits of a head's numbers. Lengths are in mm, angles in degrees.
constexpr double kLeastAngle = 25, kMostAngle = 40;  // between optical axis and laser plane
constexpr double kNearest = 180, kFarthest = 320;    // camera to field
constexpr double kCameraX = 2.5;
constexpr double kAimX = 1;
constexpr double kAimZ = 0.5;  // around the middle of the height
constexpr double kRoll = 0.4;
constexpr double kK1 = 0.08, kK2 = 0.015, kK3 = 0.002;
// The principal point is off by this fraction of the sensor's size: 20 pixels of 1456.
constexpr double kPrincipal = 20.0 / 1456;

constexpr int kMostSteps = 20;  // of Newton's method
// In units of half the sensor's width. Each step squares what is left.
constexpr double kNearEnough = 1e-6;
constexpr double kOnCircle = 1e-9;  // mm

double Radians(double degrees) { return degrees * std::numbers::pi / 180; }

double Dot(const Vector& a, const Vector& b) { return a[0] * b[0] + a[1] * b[1] + a[2] * b[2]; }

Vector Cross(const Vector& a, const Vector& b) {
  return {a[1] * b[2] - a[2] * b[1], a[2] * b[0] - a[0] * b[2], a[0] * b[1] - a[1] * b[0]};
}

Vector Times(double factor, const Vector& a) {
  return {factor * a[0], factor * a[1], factor * a[2]};
}

Vector Plus(const Vector& a, const Vector& b) { return {a[0] + b[0], a[1] + b[1], a[2] + b[2]}; }

Vector Unit(const Vector& a) { return Times(1 / std::sqrt(Dot(a, a)), a); }

// The rows of the inverse are cross products of the columns. Only ratios count.
Matrix Inverse(const Matrix& m) {
  const auto column = [&](int i) { return Vector{m[0][i], m[1][i], m[2][i]}; };
  Matrix inverse{Cross(column(1), column(2)), Cross(column(2), column(0)),
                 Cross(column(0), column(1))};
  const double scale = 1 / inverse[2][2];
  for (Vector& row : inverse) row = Times(scale, row);
  return inverse;
}

}  // namespace

Head::Head(std::uint64_t seed, unsigned sensor_width, unsigned sensor_height)
    : seed_(seed), width_(sensor_width), height_(sensor_height), unit_(sensor_width / 2.0) {
  Random random(seed);
  const double angle = Radians(random.Between(kLeastAngle, kMostAngle));
  const double distance = random.Between(kNearest, kFarthest);
  const double roll = Radians(random.Around(kRoll));
  const Vector aim{random.Around(kAimX), 0, scene::kMaxHeight / 2 + random.Around(kAimZ)};
  const Vector camera{random.Around(kCameraX), -distance * std::sin(angle),
                      aim[2] + distance * std::cos(angle)};
  distortion_ = {random.Around(kK1), random.Around(kK2), random.Around(kK3)};
  centre_column_ = (width_ - 1) / 2.0 + random.Around(kPrincipal) * width_;
  centre_row_ = (height_ - 1) / 2.0 + random.Around(kPrincipal) * height_;
  camera_ = {camera[0], camera[2]};
  away_ = -camera[1];

  const Vector ahead = Unit(Plus(aim, Times(-1, camera)));
  const Vector level = Unit(Cross(ahead, {0, 0, 1}));
  const Vector down = Cross(ahead, level);
  const Vector right = Plus(Times(std::cos(roll), level), Times(std::sin(roll), down));
  const Vector below = Plus(Times(-std::sin(roll), level), Times(std::cos(roll), down));
  const auto project = [&](const Vector& axis) {
    return Vector{axis[0], axis[2], -Dot(axis, camera)};
  };
  to_image_ = {project(right), project(below), project(ahead)};

  // The focal lengths give the field its size, whatever the sensor's. Pixels are not square then.
  const auto image = [&](int axis, double x, double z) {
    const Vector point{x, z, 1};
    return Dot(to_image_[axis], point) / Dot(to_image_[2], point);
  };
  const double half = scene::kFieldOfView / 2;
  const double quarter = height_ / 4.0 / unit_;  // from the middle to belt or greatest height
  const double across = 2 * StretchAt(1 + quarter * quarter).factor;
  const double along = 2 * quarter * StretchAt(quarter * quarter).factor;
  const double seen_across = image(0, aim[0] + half, 0) - image(0, aim[0] - half, 0);
  const double seen_along = image(1, aim[0], 0) - image(1, aim[0], scene::kMaxHeight);
  to_image_[0] = Times(across / seen_across, to_image_[0]);
  to_image_[1] = Times(along / seen_along, to_image_[1]);
  to_plane_ = Inverse(to_image_);

  // Along the radius the distortion is monotone or nearly so; the margin covers the rest.
  const double u = 1 + 2 * kPrincipal;
  const double v = u * height_ / width_;
  least_stretch_ = most_stretch_ = 1;
  constexpr int kSamples = 32;
  for (int i = 1; i <= kSamples; ++i) {
    const double factor = StretchAt((u * u + v * v) * i / kSamples).factor;
    least_stretch_ = std::min(least_stretch_, factor);
    most_stretch_ = std::max(most_stretch_, factor);
  }
}

Head::Stretch Head::StretchAt(double q) const {
  const auto& [k1, k2, k3] = distortion_;
  return {1 + q * (k1 + q * (k2 + q * k3)), k1 + q * (2 * k2 + q * 3 * k3)};
}

PlanePoint Head::ToMillimetres(double column, double row) const {
  const double u = Across(column);
  const double v = (row - centre_row_) / unit_;
  const double stretch = StretchAt(u * u + v * v).factor;
  const Vector image{stretch * u, stretch * v, 1};
  const double w = Dot(to_plane_[2], image);
  return {Dot(to_plane_[0], image) / w, Dot(to_plane_[1], image) / w};
}

Head::ImageLine Head::Image(PlanePoint from, PlanePoint to) const {
  // a x + b z + c = 0, with x, z and 1 from the image by to_plane_.
  const double a = from.z - to.z;
  const double b = to.x - from.x;
  const double c = -(a * from.x + b * from.z);
  const auto along = [&](int i) {
    return a * to_plane_[0][i] + b * to_plane_[1][i] + c * to_plane_[2][i];
  };
  return {along(0), along(1), along(2)};
}

double Head::RowOf(const ImageLine& line, double column) const {
  const double u = Across(column);
  double v = -(line.u * u + line.offset) / line.v;  // without distortion
  for (int i = 0; i < kMostSteps; ++i) {
    const Stretch stretch = StretchAt(u * u + v * v);
    const double sum = line.u * u + line.v * v;
    const double step = (stretch.factor * sum + line.offset) /
                        (2 * v * stretch.slope * sum + stretch.factor * line.v);
    v -= step;
    if (std::abs(step) < kNearEnough) break;
  }
  return centre_row_ + v * unit_;
}

double Head::RowOfCircle(PlanePoint centre, double radius, double column) const {
  const double above = centre.z + radius;
  double row = RowOf(Image({-1, above}, {1, above}), column);
  // From above the circle Newton's method comes down on it, by its tangents.
  for (int i = 0; i < kMostSteps; ++i) {
    const PlanePoint at = ToMillimetres(column, row);
    const double dx = at.x - centre.x;
    const double dz = at.z - centre.z;
    const double distance = std::hypot(dx, dz);
    const double out = distance - radius;
    if (std::abs(out) < kOnCircle) return row;
    // The tangent through the circle's nearest point.
    const PlanePoint touch{centre.x + dx * radius / distance, centre.z + dz * radius / distance};
    row = RowOf(Image(touch, {touch.x + dz, touch.z - dx}), column);
  }
  return std::numeric_limits<double>::quiet_NaN();
}

Head::Columns Head::ColumnsOf(PlanePoint point) const {
  const Vector place{point.x, point.z, 1};
  const double straight = Dot(to_image_[0], place) / Dot(to_image_[2], place);
  const double first = straight / (straight < 0 ? least_stretch_ : most_stretch_);
  const double last = straight / (straight < 0 ? most_stretch_ : least_stretch_);
  return {centre_column_ + first * unit_ - 1, centre_column_ + last * unit_ + 1};
}

}  // namespace board
