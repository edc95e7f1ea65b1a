// The solver of calibrations against heads whose truth is known.
#include <fmt/core.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>

#include "Failure.h"
#include "Heads.h"

namespace tessaline_test {
namespace {

using namespace tool::calibrate;
using ::testing::HasSubstr;

constexpr double kTenthOfMicrometre = 1e-4;  // mm

// The largest distance of measured points from the true ones across the part of the sensor that
// the targets cover.
double LargestError(std::uint64_t head, const tessaline_calibration& c) {
  double largest = 0;
  for (double column = 20; column < kWidth; column += 60) {
    for (double row = 350; row < 800; row += 50) {
      double x = 0;
      double z = 0;
      tessaline_measurement point{};
      tessaline_board_head_to_mm(head, kWidth, kHeight, column, row, &x, &z);
      EXPECT_EQ(tessaline_point_to_mm(&c, column, row, &point), 0);
      largest = std::max(largest, std::hypot(point.x - x, point.z - z));
    }
  }
  return largest;
}

class Head : public ::testing::TestWithParam<std::uint64_t> {};

TEST_P(Head, IsFoundWithoutNoiseFromASawtooth) {
  const Solution solution =
      Solve(kWidth, kHeight, Sawtooth(8, 4), LookAtAll(GetParam(), "sawtooth", 0));
  EXPECT_LT(LargestError(GetParam(), solution.calibration), kTenthOfMicrometre);
  EXPECT_LT(solution.error_pixels, 1e-3);
}

// x comes from the edges of the treads, which lie anywhere within a column.
TEST_P(Head, IsFoundFromStairs) {
  const Target stairs =
      Stairs({-27, -21, -15, -9, -3, 3, 9, 15, 21, 27}, {0, 3, 6, 9, 12, 9, 6, 3, 0});
  const Solution solution = Solve(kWidth, kHeight, stairs, LookAtAll(GetParam(), "stairs", 0));
  EXPECT_LT(LargestError(GetParam(), solution.calibration), 0.05);
  EXPECT_LT(solution.calibration.z_sigma, 0.01);
}

TEST_P(Head, IsFoundFromAPlaneAtKnownPlaces) {
  std::vector<Sight> sights;
  constexpr double kDegree = 3.14159265358979323846 / 180;
  for (const auto& [z, tilt] : std::vector<std::array<double, 2>>{
           {0, 0}, {10, 0}, {18, 0}, {5, 8}, {5, -8}, {12, 10}, {12, -10}}) {
    Sight sight{Look(GetParam(), fmt::format("plane,z={},tilt={}", z, tilt), 1, 0), {}, {}};
    sight.pose.z = z;
    sight.pose.tilt = tilt * kDegree;
    sights.push_back(sight);
  }
  const Solution solution = Solve(kWidth, kHeight, Plane(), sights);
  EXPECT_LT(LargestError(GetParam(), solution.calibration), kTenthOfMicrometre);
}

INSTANTIATE_TEST_SUITE_P(Seeds, Head, ::testing::Range<std::uint64_t>(1, 5));

// What cannot be solved is refused, with the reason.
std::string Refusal(const Target& target, std::vector<Sight> sights) {
  try {
    const Solution solution = Solve(kWidth, kHeight, target, std::move(sights));
    return fmt::format("solved with {} pixels", solution.error_pixels);
  } catch (const tool::Failure& failure) {
    return failure.what();
  }
}

TEST(Refused, TwoViews) {
  auto sights = LookAtAll(1, "sawtooth", 1);
  sights.resize(2);
  EXPECT_THAT(Refusal(Sawtooth(8, 4), sights), HasSubstr("2 views are too few"));
}

TEST(Refused, ThreeTimesTheSameView) {
  std::vector<Sight> sights;
  for (std::uint64_t i = 1; i <= 3; ++i) sights.push_back({Look(1, "sawtooth", i, 1), {}, {}});
  EXPECT_THAT(Refusal(Sawtooth(8, 4), sights), HasSubstr("they only cover rows"));
}

TEST(Refused, FlatPlanesOnly) {
  std::vector<Sight> sights;
  for (const double z : {0.0, 5.0, 10.0, 15.0}) {
    Sight sight{Look(1, fmt::format("plane,z={}", z), 1, 1), {}, {}};
    sight.pose.z = z;
    sight.pose.tilt = 0;
    sights.push_back(sight);
  }
  EXPECT_THAT(Refusal(Plane(), sights), HasSubstr("do not determine"));
}

TEST(Refused, PlanesThatStandAnywhere) {
  EXPECT_THAT(Refusal(Plane(), LookAtAll(1, "plane", 1)), HasSubstr("height and tilt are known"));
}

TEST(Refused, AnotherTarget) {
  EXPECT_THAT(Refusal(Sawtooth(8, 4), LookAtAll(1, "plane", 1)), HasSubstr("sawtooth"));
  EXPECT_THAT(
      Refusal(Stairs({-15, -9, -3, 3, 9, 15}, {0, 3, 6, 3, 0}), LookAtAll(1, "sawtooth", 1)),
      HasSubstr("the steps seen are none"));
}

TEST(Refused, NothingInView) {
  std::vector<Sight> sights(3);
  EXPECT_THAT(Refusal(Sawtooth(8, 4), sights), HasSubstr("too few"));
}

}  // namespace
}  // namespace tessaline_test
