#include "model/Speckle.h"

#include <algorithm>
#include <cmath>
#include <numbers>

#include "model/Random.h"

namespace board {
namespace {

constexpr double kDim = 40;               // grey value where the dark noise counts as much
constexpr double kSaturated = 255;        // highest grey value
constexpr double kMostOversaturated = 3;  // more light does not make it worse

}  // namespace

Speckle SpeckleAt(std::uint64_t seed, std::uint64_t frame_id, unsigned column) {
  Random random(Mix(Mix(seed) + frame_id) + column * 0xD1342543DE82EF95u);
  // Box and Muller's transformation: two uniform numbers to two normal ones.
  const double radius = std::sqrt(-2 * std::log(1 - random.Fraction()));
  const double angle = 2 * std::numbers::pi * random.Fraction();
  return {radius * std::cos(angle), radius * std::sin(angle), random.Fraction() < kLostFraction};
}

double SpeckleRowSigma(double grey) {
  const double dim = kDim / std::max(grey, 1.0);
  const double over = std::clamp(grey / kSaturated - 1, 0.0, kMostOversaturated);
  return kSpeckleRow * std::sqrt(1 + dim * dim + over * over);
}

}  // namespace board
