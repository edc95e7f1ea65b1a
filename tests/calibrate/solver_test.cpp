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

// --- The field -----------------------------------------------------------------------------

std::vector<Sight> Planes(std::uint64_t head) {
  std::vector<Sight> sights;
  constexpr double kDegree = 3.14159265358979323846 / 180;
  for (const auto& [z, tilt] : std::vector<std::array<double, 2>>{
           {0, 0}, {10, 0}, {18, 0}, {5, 8}, {5, -8}, {12, 10}, {12, -10}}) {
    Sight sight{Look(head, fmt::format("plane,z={},tilt={}", z, tilt), 1, 1), {}, {}};
    sight.pose.z = z;
    sight.pose.tilt = tilt * kDegree;
    sights.push_back(sight);
  }
  return sights;
}

// A stray reflection far below, which the solver leaves out, is not where the target was.
TEST(Field, IsWhereTheTargetWasSeen) {
  auto sights = Planes(2);
  double lowest = 0;
  double highest = kHeight;
  for (const Sight& sight : sights) {
    for (const Sample& sample : sight.view.samples) {
      lowest = std::max(lowest, sample.row);
      highest = std::min(highest, sample.row);
    }
  }
  ASSERT_LT(lowest, kHeight - 60);
  sights[1].view.samples[700].row = kHeight - 1;
  const Solution solution = Solve(kWidth, kHeight, Plane(), sights);
  const tessaline_calibration& c = solution.calibration;
  EXPECT_GE(solution.outliers, 1u);
  ASSERT_GE(c.field_corners, 3u);
  double bottom = 0;
  double top = kHeight;
  for (std::uint32_t i = 0; i < c.field_corners; ++i) {
    bottom = std::max<double>(bottom, c.field[i].row);
    top = std::min<double>(top, c.field[i].row);
  }
  EXPECT_NEAR(bottom, lowest, 2);
  EXPECT_NEAR(top, highest, 2);
  // Nearly all points that were used lie in it.
  double inside = 0;
  double all = 0;
  for (std::size_t i = 0; i < sights.size(); ++i) {
    for (const Sample& sample : sights[i].view.samples) {
      tessaline_measurement point{};
      ASSERT_EQ(tessaline_point_to_mm(&c, sample.column, sample.row, &point), 0);
      inside += !std::isnan(point.z_sigma);
      all += 1;
    }
  }
  EXPECT_GT(inside / all, 0.99);
}

// --- How much a view counts ----------------------------------------------------------------

// Views of a tenth of the noise, as means of a hundred profiles are, decide.
TEST(Views, CountByTheirNoise) {
  double squares = 0;
  double count = 0;
  for (std::uint64_t head = 1; head <= 4; ++head) {
    std::vector<Sight> sights = LookAtAll(head, "sawtooth", 0.1);
    for (const std::string& pose : kPoses) {
      const std::string moved = pose.empty() ? ",z=3" : pose + ",x=0.5";
      sights.push_back({Look(head, "sawtooth" + moved, sights.size() + 1, 1), {}, {}});
    }
    const Solution solution = Solve(kWidth, kHeight, Sawtooth(8, 4), sights);
    squares += std::pow(LargestError(head, solution.calibration), 2);
    count += 1;
    EXPECT_LT(solution.calibration.z_sigma, 0.15e-3);
  }
  EXPECT_LT(std::sqrt(squares / count), 0.5e-3);
}

// --- What is told --------------------------------------------------------------------------

TEST(Solved, TellsHowFarTheLensIsFromTheUsual) {
  const Solution solution = Solve(kWidth, kHeight, Sawtooth(8, 4), LookAtAll(2, "sawtooth", 1));
  const tessaline_calibration& c = solution.calibration;
  EXPECT_EQ(solution.priors[0].Off(), c.distortion[0] / 0.3);
  EXPECT_EQ(solution.priors[3].Off(), (c.centre_column - kWidth / 2.0) / (0.02 * kWidth));
  EXPECT_EQ(solution.corners, 0u) << "those of a sawtooth are not measured";
}

TEST(Solved, TellsHowFarTheEdgesOfStairsAreOff) {
  const Target stairs =
      Stairs({-27, -21, -15, -9, -3, 3, 9, 15, 21, 27}, {0, 3, 6, 9, 12, 9, 6, 3, 0});
  const Solution solution = Solve(kWidth, kHeight, stairs, LookAtAll(1, "stairs", 0));
  EXPECT_GT(solution.corners, 7 * 4u);
  EXPECT_GT(solution.corner_error, 0.05);  // an edge lies anywhere between two columns
  EXPECT_LT(solution.corner_error, 1);
}

// --- What is refused -----------------------------------------------------------------------

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

TEST(Refused, MoreViewsThanCanBeSolved) {
  EXPECT_THAT(Refusal(Sawtooth(8, 4), std::vector<Sight>(101)),
              HasSubstr("101 views are too many: at most 100"));
  EXPECT_NO_THROW(RequireViews(100));
}

TEST(Refused, WhatDoesNotConverge) {
  std::vector<Sight> sights = LookAtAll(1, "sawtooth", 1);
  const Target target = Sawtooth(8, 4);
  for (Sight& sight : sights) sight.outline = TakeApart(sight.view, target, kWidth / 2.0);
  sights[0].pose = {.x = 0, .z = 0, .tilt = 0};
  const Problem problem(kWidth, kHeight, target, sights);
  Eigen::VectorXd input = problem.Guess();
  try {
    Minimise(problem, input, 2);
    FAIL() << "two steps were enough";
  } catch (const tool::Failure& failure) {
    EXPECT_THAT(failure.what(), HasSubstr("still improves after 2 steps"));
  }
  EXPECT_NO_THROW(Minimise(problem, input));
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
