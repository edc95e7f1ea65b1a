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
    const double tread = (kStairs.right - kStairs.left) / kSteps;
    return kStepHeight * (1 + std::min(kSteps - 1, static_cast<int>((x - kStairs.left) / tread)));
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

double Row(double z, unsigned full_height) { return full_height * (0.75 - 0.5 * z / kMaxHeight); }

double X(double column, unsigned full_width) {
  return (column - full_width / 2.0) * kFieldOfView / full_width;
}

}  // namespace board::scene
