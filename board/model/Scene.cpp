#include "model/Scene.h"

#include <algorithm>
#include <cmath>

namespace board::scene {
namespace {

struct Rectangle {
  double left, right, front, back;

  bool Holds(double x, double y) const { return x >= left && x < right && y >= front && y < back; }
};

// A ball sunk into the belt, with a cap of 10 mm above it.
constexpr double kBallX = -18, kBallY = 25, kBallRadius = 14, kBallSunk = 4;

constexpr Rectangle kStairs{4, 32, 10, 40};  // three steps across, 3 mm each
constexpr int kSteps = 3;
constexpr double kStepHeight = 3;

constexpr Rectangle kRamp{-32, -4, 55, 85};  // rises along the movement
constexpr double kRampHeight = 10;

constexpr Rectangle kPlate{4, 32, 55, 85};  // flat, printed with a chequered pattern
constexpr double kPlateHeight = 4;
constexpr double kChequer = 4;

constexpr double kTread = (kStairs.right - kStairs.left) / kSteps;

constexpr double kBeltReflectance = 0.45;
constexpr double kObjectReflectance = 0.75;
constexpr double kInkReflectance = 0.25;
constexpr double kPaperReflectance = 0.9;

// Position within the repeating pattern, 0 .. kPeriod.
double InPeriod(double y) {
  const double rest = std::fmod(y, kPeriod);
  return rest < 0 ? rest + kPeriod : rest;
}

}  // namespace

double BeltPosition(std::int64_t time_ns) { return static_cast<double>(time_ns) * 1e-9 * kSpeed; }

std::uint64_t EncoderCount(std::int64_t time_ns) {
  return static_cast<std::uint64_t>(static_cast<double>(time_ns) * 1e-9 * kCountsPerSecond);
}

double Height(double x, double along) {
  const double y = InPeriod(along);
  const double dx = x - kBallX;
  const double dy = y - kBallY;
  const double under = kBallRadius * kBallRadius - dx * dx - dy * dy;
  if (under > kBallSunk * kBallSunk) return std::sqrt(under) - kBallSunk;
  if (kStairs.Holds(x, y)) {
    return kStepHeight * (1 + std::min(kSteps - 1, static_cast<int>((x - kStairs.left) / kTread)));
  }
  if (kRamp.Holds(x, y)) return kRampHeight * (y - kRamp.front) / (kRamp.back - kRamp.front);
  if (kPlate.Holds(x, y)) return kPlateHeight;
  return 0;
}

double Reflectance(double x, double along) {
  const double y = InPeriod(along);
  if (kPlate.Holds(x, y)) {
    const auto column = static_cast<int>((x - kPlate.left) / kChequer);
    const auto row = static_cast<int>((y - kPlate.front) / kChequer);
    return (column + row) % 2 == 0 ? kInkReflectance : kPaperReflectance;
  }
  return Height(x, along) > 0 ? kObjectReflectance : kBeltReflectance;
}

Surface CrossSection(double along) {
  const double y = InPeriod(along);
  Surface surface;
  PlanePoint end{-kSurfaceReach, 0};
  const auto to = [&](double x, double z) {
    if (x > end.x) surface.faces.push_back({end, {x, end.z}});
    if (z != end.z) surface.faces.push_back({{x, end.z}, {x, z}, true});
    end = {x, z};
  };
  const auto box = [&](double left, double right, double height) {
    to(left, height);
    to(right, 0);
  };
  const double from_ball = y - kBallY;
  const double across = kBallRadius * kBallRadius - kBallSunk * kBallSunk - from_ball * from_ball;
  if (across > 0) {
    const double half = std::sqrt(across);
    to(kBallX - half, 0);
    end.x = kBallX + half;
    surface.cap = {{kBallX, -kBallSunk},
                   std::sqrt(across + kBallSunk * kBallSunk),
                   kBallX - half,
                   kBallX + half};
  }
  const auto is_at = [=](const Rectangle& object) { return y >= object.front && y < object.back; };
  if (is_at(kRamp)) box(kRamp.left, kRamp.right, Height(kRamp.left, y));
  if (is_at(kPlate)) box(kPlate.left, kPlate.right, kPlateHeight);
  if (is_at(kStairs)) {
    for (int step = 0; step < kSteps; ++step) {
      to(kStairs.left + step * kTread, (step + 1) * kStepHeight);
    }
    to(kStairs.right, 0);
  }
  to(kSurfaceReach, 0);
  return surface;
}

namespace {

// Whether a way misses an object between these limits at any x.
bool IsOut(double front, double back, const Sight& sight) {
  constexpr double kLongest = 12;  // mm along the belt, until it is above everything
  return sight.y < front || sight.y - kLongest > back;
}

bool IsBlockedByBall(const Sight& sight) {
  if (IsOut(kBallY - kBallRadius, kBallY + kBallRadius, sight)) return false;
  const double dx = sight.x - kBallX;
  const double dy = sight.y - kBallY;
  const double dz = sight.z + kBallSunk;
  const double towards = dx * sight.across + dy * sight.along + dz * sight.up;
  const double outside = dx * dx + dy * dy + dz * dz - kBallRadius * kBallRadius;
  const double length =
      sight.across * sight.across + sight.along * sight.along + sight.up * sight.up;
  return towards < 0 && towards * towards > length * outside;
}

// The part of the way, in units of its direction, that lies between two limits.
struct Part {
  double begin, end;
};
Part Between(double low, double high, double from, double direction) {
  const auto [begin, end] = std::minmax({(low - from) / direction, (high - from) / direction});
  return {begin, end};
}

// Whether the way enters an object through one of its sides.
bool IsBlockedBy(const Rectangle& object, const Sight& sight) {
  if (IsOut(object.front, object.back, sight)) return false;
  constexpr double kInside = 1e-6;  // mm, so that the height is the object's
  const Part x = Between(object.left, object.right, sight.x, sight.across);
  const Part y = Between(object.front, object.back, sight.y, sight.along);
  const double entry = std::max(x.begin, y.begin);
  if (entry <= 0 || entry >= std::min(x.end, y.end)) return false;
  const double at_x =
      std::clamp(sight.x + entry * sight.across, object.left + kInside, object.right - kInside);
  const double at_y =
      std::clamp(sight.y + entry * sight.along, object.front + kInside, object.back - kInside);
  return sight.z + entry * sight.up < Height(at_x, at_y);
}

}  // namespace

bool IsBlocked(const Sight& any) {
  Sight sight = any;
  sight.y = InPeriod(any.y);
  if (IsBlockedByBall(sight)) return true;
  for (int step = 0; step < kSteps; ++step) {
    const double left = kStairs.left + step * kTread;
    if (IsBlockedBy({left, left + kTread, kStairs.front, kStairs.back}, sight)) return true;
  }
  return IsBlockedBy(kRamp, sight) || IsBlockedBy(kPlate, sight);
}

double Row(double z, unsigned full_height) { return full_height * (0.75 - 0.5 * z / kMaxHeight); }

double Z(double row, unsigned full_height) { return (0.75 - row / full_height) * 2 * kMaxHeight; }

double X(double column, unsigned full_width) {
  return (column - full_width / 2.0) * kFieldOfView / full_width;
}

}  // namespace board::scene
