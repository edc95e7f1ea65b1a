// From pixels to millimetres and back: against the formulas written out, against finite
// differences, and what is no calibration.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <functional>
#include <limits>
#include <random>
#include <string>
#include <vector>

#include "profile/Heads.h"

namespace {

using profile_test::Arrays;
using profile_test::kHead;
using profile_test::Profiles;
using profile_test::SetField;
using profile_test::With;
using ::testing::Each;

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr double kInfinity = std::numeric_limits<double>::infinity();

struct Millimetres {
  double x, z;
};

// The documented formulas, one after the other, with more digits.
Millimetres ByTheFormulas(const tessaline_calibration& c, double column, double row) {
  using Long = long double;
  const Long u = (static_cast<Long>(column) - c.centre_column) / c.pixels_per_unit;
  const Long v = (static_cast<Long>(row) - c.centre_row) / c.pixels_per_unit;
  const Long r2 = u * u + v * v;
  const Long factor =
      1 + c.distortion[0] * r2 + c.distortion[1] * r2 * r2 + c.distortion[2] * r2 * r2 * r2;
  const std::array<Long, 3> image{u * factor, v * factor, 1};
  std::array<Long, 3> plane{};
  for (std::size_t i = 0; i < 3; ++i) {
    for (std::size_t j = 0; j < 3; ++j) plane[i] += c.plane[3 * i + j] * image[j];
  }
  return {static_cast<double>(plane[0] / plane[2]), static_cast<double>(plane[1] / plane[2])};
}

// A number of places all over the sensor, its corners among them.
template <typename Use>
void ForPlaces(const tessaline_calibration& c, Use use) {
  for (int i = 0; i <= 13; ++i) {
    for (int j = 0; j <= 11; ++j) {
      use((c.sensor_width - 1) * i / 13.0, (c.sensor_height - 1) * j / 11.0);
    }
  }
}

// --- One point -----------------------------------------------------------------------------

TEST(Point, IsWhereTheFormulasSay) {
  ForPlaces(kHead, [](double column, double row) {
    tessaline_measurement point{};
    ASSERT_EQ(tessaline_point_to_mm(&kHead, column, row, &point), 0);
    const Millimetres expected = ByTheFormulas(kHead, column, row);
    ASSERT_NEAR(point.x, expected.x, 1e-12) << column << ", " << row;
    ASSERT_NEAR(point.z, expected.z, 1e-12) << column << ", " << row;
  });
}

TEST(Point, DependsOnEveryNumberOfTheModel) {
  const auto seen = [](const tessaline_calibration& c) {
    tessaline_measurement point{};
    EXPECT_EQ(tessaline_point_to_mm(&c, 100.5, 200.25, &point), 0);
    return point;
  };
  const tessaline_measurement usual = seen(kHead);
  double tessaline_calibration::*const numbers[] = {&tessaline_calibration::centre_column,
                                                    &tessaline_calibration::centre_row,
                                                    &tessaline_calibration::pixels_per_unit};
  for (const auto number : numbers) {
    EXPECT_NE(seen(With([&](auto& c) { c.*number += 1; })).x, usual.x);
  }
  for (std::size_t i = 0; i < 3; ++i) {
    EXPECT_NE(seen(With([&](auto& c) { c.distortion[i] += 1e-3; })).x, usual.x) << "k" << i + 1;
  }
  for (std::size_t i = 0; i < 9; ++i) {
    const auto other = seen(With([&](auto& c) { c.plane[i] += 1e-3; }));
    EXPECT_TRUE(other.x != usual.x || other.z != usual.z) << "plane[" << i << "]";
  }
}

// A map is the same whatever all nine numbers are multiplied by.
TEST(Point, DoesNotDependOnTheScaleOfTheMap) {
  const auto scaled = With([](auto& c) {
    for (double& number : c.plane) number *= 250;
  });
  tessaline_measurement a{}, b{};
  ASSERT_EQ(tessaline_point_to_mm(&kHead, 10, 1000, &a), 0);
  ASSERT_EQ(tessaline_point_to_mm(&scaled, 10, 1000, &b), 0);
  EXPECT_NEAR(a.x, b.x, 1e-12);
  EXPECT_NEAR(a.z, b.z, 1e-12);
  EXPECT_NEAR(a.z_row, b.z_row, 1e-12);
}

TEST(Point, HasTheDerivativesOfFiniteDifferences) {
  constexpr double kStep = 1e-3;
  constexpr double kClose = 2e-9;  // mm per pixel, of 0.03 to 0.06
  ForPlaces(kHead, [&](double column, double row) {
    tessaline_measurement point{};
    ASSERT_EQ(tessaline_point_to_mm(&kHead, column, row, &point), 0);
    const auto right = ByTheFormulas(kHead, column + kStep, row);
    const auto left = ByTheFormulas(kHead, column - kStep, row);
    const auto below = ByTheFormulas(kHead, column, row + kStep);
    const auto above = ByTheFormulas(kHead, column, row - kStep);
    ASSERT_NEAR(point.x_column, (right.x - left.x) / (2 * kStep), kClose);
    ASSERT_NEAR(point.z_column, (right.z - left.z) / (2 * kStep), kClose);
    ASSERT_NEAR(point.x_row, (below.x - above.x) / (2 * kStep), kClose);
    ASSERT_NEAR(point.z_row, (below.z - above.z) / (2 * kStep), kClose);
  });
}

// The sample deviation of many noisy places is the sigma that is stated.
TEST(Point, ScattersAsItsSigmaSays) {
  std::mt19937 random(7);
  constexpr int kTimes = 20000;
  const auto head = With([](auto& c) {
    c.column_sigma = 0.2;
    c.row_sigma = 0.3;
  });
  std::normal_distribution<double> columns(0, head.column_sigma);
  std::normal_distribution<double> rows(0, head.row_sigma);
  for (const auto& [column, row] : {std::pair(30.0, 20.0), std::pair(1400.0, 900.0)}) {
    tessaline_measurement point{};
    ASSERT_EQ(tessaline_point_to_mm(&head, column, row, &point), 0);
    double x2 = 0;
    double z2 = 0;
    for (int i = 0; i < kTimes; ++i) {
      const auto noisy = ByTheFormulas(head, column + columns(random), row + rows(random));
      x2 += (noisy.x - point.x) * (noisy.x - point.x);
      z2 += (noisy.z - point.z) * (noisy.z - point.z);
    }
    // A sample of this size is off by 0.5 percent itself (1 sigma).
    EXPECT_NEAR(std::sqrt(x2 / kTimes) / point.x_sigma, 1, 0.025);
    EXPECT_NEAR(std::sqrt(z2 / kTimes) / point.z_sigma, 1, 0.025);
  }
}

TEST(Point, AddsTheCalibrationsOwnSigmaInQuadrature) {
  const auto head = With([](auto& c) {
    c.x_sigma = 0.003;
    c.z_sigma = 0.004;
  });
  tessaline_measurement usual{}, point{};
  ASSERT_EQ(tessaline_point_to_mm(&kHead, 500, 500, &usual), 0);
  ASSERT_EQ(tessaline_point_to_mm(&head, 500, 500, &point), 0);
  EXPECT_NEAR(point.x_sigma, std::hypot(usual.x_sigma, 0.003), 1e-15);
  EXPECT_NEAR(point.z_sigma, std::hypot(usual.z_sigma, 0.004), 1e-15);
}

TEST(Point, BeyondTheHorizonIsOutside) {
  const auto head = With([](auto& c) { c.plane[7] = 0.9; });  // w is 0 at v = -1.11
  tessaline_measurement point{};
  EXPECT_EQ(tessaline_point_to_mm(&head, 700, 0, &point), 0);
  EXPECT_EQ(tessaline_point_to_mm(&head, 700, -400, &point), TESSALINE_PROFILE_OUTSIDE);
  EXPECT_EQ(tessaline_point_to_mm(&head, kNaN, 5, &point), TESSALINE_PROFILE_OUTSIDE);
  EXPECT_EQ(tessaline_point_to_mm(&head, 5, kInfinity, &point), TESSALINE_PROFILE_OUTSIDE);
  EXPECT_EQ(tessaline_point_to_mm(nullptr, 5, 5, &point), TESSALINE_PROFILE_ARGUMENT);
  EXPECT_EQ(tessaline_point_to_mm(&head, 5, 5, nullptr), TESSALINE_PROFILE_ARGUMENT);
}

// --- Back to the sensor --------------------------------------------------------------------

const std::pair<const char*, std::array<double, 3>> kLenses[] = {
    {"none", {0, 0, 0}},
    {"pincushion", {-0.031, 0.0042, -0.0007}},
    {"barrel", {0.15, 0.05, 0.02}},
    {"strong", {-0.12, 0, 0}},
    {"winding", {0.1, -0.08, 0.02}},
};

TEST(Pixel, IsTheOneThatSawThePoint) {
  for (const auto& [lens, k] : kLenses) {
    SCOPED_TRACE(lens);
    const auto head = With([&, &k = k](auto& c) { std::copy(k.begin(), k.end(), c.distortion); });
    ASSERT_EQ(tessaline_calibration_check(&head), 0);
    const auto expect = [&head](double column, double row) {
      const Millimetres mm = ByTheFormulas(head, column, row);
      double seen_column = 0;
      double seen_row = 0;
      ASSERT_EQ(tessaline_point_to_pixel(&head, mm.x, mm.z, &seen_column, &seen_row), 0)
          << column << ", " << row;
      ASSERT_NEAR(seen_column, column, 1e-9);
      ASSERT_NEAR(seen_row, row, 1e-9);
    };
    ForPlaces(head, expect);
    expect(head.centre_column, head.centre_row);
  }
}

// Lenses on which Newton's steps alone go astray: the radius hardly grows somewhere, or fast.
TEST(Pixel, IsFoundForLensesThatNobodyMakes) {
  constexpr std::array<double, 3> kStrange[] = {{-1.0555, 0.5278, 0}, {2.7463, -0.87598, -0.09346}};
  for (const auto& k : kStrange) {
    const auto head = With([&k](auto& c) { std::copy(k.begin(), k.end(), c.distortion); });
    ASSERT_EQ(tessaline_calibration_check(&head), 0);
    ForPlaces(head, [&head](double column, double row) {
      const Millimetres mm = ByTheFormulas(head, column, row);
      double seen_column = 0;
      double seen_row = 0;
      ASSERT_EQ(tessaline_point_to_pixel(&head, mm.x, mm.z, &seen_column, &seen_row), 0);
      ASSERT_NEAR(seen_column, column, 1e-9);
      ASSERT_NEAR(seen_row, row, 1e-9);
    });
  }
}

// Not even in the direction of a corner, which is as far out as the sensor goes.
TEST(Pixel, BeyondACornerThereIsNone) {
  for (const double right : {-0.5, 1455.5}) {
    for (const double bottom : {-0.5, 1087.5}) {
      const double column = kHead.centre_column + 1.1 * (right - kHead.centre_column);
      const double row = kHead.centre_row + 1.1 * (bottom - kHead.centre_row);
      const Millimetres mm = ByTheFormulas(kHead, column, row);
      double seen_column = 0;
      double seen_row = 0;
      EXPECT_EQ(tessaline_point_to_pixel(&kHead, mm.x, mm.z, &seen_column, &seen_row),
                TESSALINE_PROFILE_OUTSIDE);
    }
  }
}

TEST(Pixel, IsOnTheSensorOrThereIsNone) {
  double column = 5;
  double row = 6;
  for (const auto& [x, z] :
       {std::pair(60.0, 0.0), std::pair(-60.0, 0.0), std::pair(0.0, 50.0), std::pair(0.0, -50.0),
        std::pair(1e9, 1e9), std::pair(kNaN, 0.0), std::pair(0.0, kInfinity)}) {
    EXPECT_EQ(tessaline_point_to_pixel(&kHead, x, z, &column, &row), TESSALINE_PROFILE_OUTSIDE)
        << x << ", " << z;
  }
  EXPECT_EQ(column, 5);
  EXPECT_EQ(row, 6);
  // Half a pixel beyond the centre of the last column is its edge.
  for (const auto& [beyond, result] :
       {std::pair(0.49, 0), std::pair(0.51, int{TESSALINE_PROFILE_OUTSIDE})}) {
    const Millimetres mm = ByTheFormulas(kHead, 1455 + beyond, 500);
    EXPECT_EQ(tessaline_point_to_pixel(&kHead, mm.x, mm.z, &column, &row), result);
  }
  EXPECT_EQ(tessaline_point_to_pixel(nullptr, 0, 0, &column, &row), TESSALINE_PROFILE_ARGUMENT);
  EXPECT_EQ(tessaline_point_to_pixel(&kHead, 0, 0, nullptr, &row), TESSALINE_PROFILE_ARGUMENT);
  EXPECT_EQ(tessaline_point_to_pixel(&kHead, 0, 0, &column, nullptr), TESSALINE_PROFILE_ARGUMENT);
}

// --- What is a calibration -----------------------------------------------------------------

struct Change {
  const char* what;
  std::function<void(tessaline_calibration&)> change;
};

void PrintTo(const Change& change, std::ostream* out) { *out << change.what; }

class Impossible : public ::testing::TestWithParam<Change> {};

TEST_P(Impossible, IsRefusedByTheCheckAndForProfiles) {
  const auto head = With(GetParam().change);
  EXPECT_EQ(tessaline_calibration_check(&head), TESSALINE_PROFILE_CALIBRATION);
  Arrays arrays(1);
  auto profile = arrays.Profile();
  profile.point_count = 1;
  profile.sensor_width = 1456;
  profile.sensor_height = 1088;
  const auto mm = arrays.Millimetres();
  EXPECT_EQ(tessaline_profile_to_mm(&head, &profile, &mm), TESSALINE_PROFILE_CALIBRATION);
  EXPECT_THAT(arrays.x, Each(Arrays::kUntouched));
}

std::vector<Change> ImpossibleOnes() {
  return {
      {"not_a_number", [](auto& c) { c.centre_row = kNaN; }},
      {"infinite", [](auto& c) { c.plane[4] = kInfinity; }},
      {"infinite_distortion", [](auto& c) { c.distortion[2] = -kInfinity; }},
      {"sigma_not_a_number", [](auto& c) { c.z_sigma = kNaN; }},
      {"numbers_beyond_single_precision", [](auto& c) { c.plane[0] = 1e39; }},
      {"no_unit", [](auto& c) { c.pixels_per_unit = 0; }},
      {"negative_unit", [](auto& c) { c.pixels_per_unit = -728; }},
      {"unit_beyond_the_sensor", [](auto& c) { c.pixels_per_unit = 1e39; }},
      {"centre_far_to_the_right", [](auto& c) { c.centre_column = 3000; }},
      {"centre_far_above", [](auto& c) { c.centre_row = -1100; }},
      {"no_columns", [](auto& c) { c.sensor_width = 0; }},
      {"too_many_rows", [](auto& c) { c.sensor_height = 32769; }},
      {"behind_at_the_centre", [](auto& c) { c.plane[8] = -1; }},
      {"no_depth_at_the_centre", [](auto& c) { c.plane[8] = 0; }},
      {"all_zero", [](auto& c) { std::fill(c.plane, c.plane + 9, 0.0); }},
      {"all_points_on_a_line", [](auto& c) { std::copy_n(c.plane, 3, c.plane + 3); }},
      {"x_follows_z",
       [](auto& c) {
         for (int i = 0; i < 3; ++i) c.plane[i] = 2 * c.plane[3 + i] - 7 * c.plane[6 + i];
       }},
      {"horizon_on_the_sensor", [](auto& c) { c.plane[7] = 1.5; }},
      {"horizon_in_a_corner", [](auto& c) { c.plane[6] = c.plane[7] = -0.62; }},
      {"folds_at_the_corner", [](auto& c) { c.distortion[0] = -0.3; }},
      {"folds_between",
       [](auto& c) {  // lowest where q is 0.71: 1 - 2.1 + 0.75
         c.distortion[0] = -1;
         c.distortion[1] = 0.42;
         c.distortion[2] = 0;
       }},
      {"negative_column_sigma", [](auto& c) { c.column_sigma = -1; }},
      {"negative_row_sigma", [](auto& c) { c.row_sigma = -1; }},
      {"negative_x_sigma", [](auto& c) { c.x_sigma = -1; }},
      {"negative_z_sigma", [](auto& c) { c.z_sigma = -1; }},
      {"column_sigma_beyond_the_sensor", [](auto& c) { c.column_sigma = 1e200; }},
      {"x_sigma_beyond_single_precision", [](auto& c) { c.x_sigma = 1e39; }},
      {"field_of_two_corners",
       [](auto& c) {
         SetField(c, {{10, 10}, {900, 900}});
       }},
      {"field_of_no_area",
       [](auto& c) {
         SetField(c, {{10, 10}, {20, 20}, {900, 900}});
       }},
      {"field_of_too_many_corners",  // the zeros behind the last one would make it a pie
       [](auto& c) {
         SetField(c, {{1000, 0},
                      {980, 190},
                      {920, 380},
                      {830, 550},
                      {550, 830},
                      {380, 920},
                      {190, 980},
                      {0, 1000}});
         c.field_corners = 9;
       }},
      {"field_of_a_wild_number_of_corners", [](auto& c) { c.field_corners = 0x80000001; }},
      {"field_beside_the_sensor",
       [](auto& c) {
         SetField(c, {{9, 9}, {1456, 9}, {9, 900}});
       }},
      {"field_below_the_sensor",
       [](auto& c) {
         SetField(c, {{9, 9}, {900, 9}, {9, 1088}});
       }},
      {"field_with_a_dent",
       [](auto& c) {
         SetField(c, {{10, 10}, {900, 10}, {300, 300}, {10, 900}});
       }},
      {"field_that_crosses_itself",  // each corner turns to the same side, twice around
       [](auto& c) {
         SetField(c, {{700, 100}, {900, 900}, {300, 400}, {1100, 400}, {500, 900}});
       }},
  };
}

INSTANTIATE_TEST_SUITE_P(Calibration, Impossible, ::testing::ValuesIn(ImpossibleOnes()),
                         [](const auto& row) { return std::string(row.param.what); });

TEST(Possible, IsAHeadAndOneWithoutDistortionOrSigma) {
  EXPECT_EQ(tessaline_calibration_check(&kHead), 0);
  const auto plain = With([](auto& c) {
    std::fill(c.distortion, c.distortion + 3, 0.0);
    c.column_sigma = c.row_sigma = 0;
  });
  EXPECT_EQ(tessaline_calibration_check(&plain), 0);
  EXPECT_EQ(tessaline_calibration_check(nullptr), TESSALINE_PROFILE_ARGUMENT);
}

// Whether the radius grows is computed; here it is tried out, for all kinds of lenses.
TEST(Possible, AreTheLensesWhoseRadiusGrowsUpToTheCorners) {
  std::mt19937 random(3);
  std::uniform_real_distribution<double> number(-0.6, 0.6);
  const double corner2 = std::pow(732.0 / 728, 2) + std::pow(547.75 / 728, 2);
  int refused = 0;
  for (int i = 0; i < 2000; ++i) {
    auto head = With([](auto& c) { c.plane[6] = c.plane[7] = 0; });
    for (double& k : head.distortion) k = number(random);
    double least = 1;
    for (int step = 0; step <= 2000; ++step) {
      const double q = corner2 * step / 2000;
      least = std::min(least, 1 + 3 * head.distortion[0] * q + 5 * head.distortion[1] * q * q +
                                  7 * head.distortion[2] * q * q * q);
    }
    if (std::abs(least) < 1e-3) continue;  // the steps are too coarse to tell
    ASSERT_EQ(tessaline_calibration_check(&head) == 0, least > 0)
        << head.distortion[0] << " " << head.distortion[1] << " " << head.distortion[2];
    refused += least < 0;
  }
  EXPECT_GT(refused, 200);
}

// --- Profiles ------------------------------------------------------------------------------

TEST_F(Profiles, WithMorePointsThanRoomAreRefused) {
  profile_.point_count = profile_.capacity + 1;
  EXPECT_EQ(tessaline_profile_to_mm(&kHead, &profile_, &mm_), TESSALINE_PROFILE_CAPACITY);
}

TEST_F(Profiles, AreMeasuredWithinAFewHundredthsOfAMicrometre) {
  constexpr double kClose = 0.05e-3;
  for (const auto& [lens, k] : kLenses) {
    SCOPED_TRACE(lens);
    const auto head = With([&, &k = k](auto& c) { std::copy(k.begin(), k.end(), c.distortion); });
    ASSERT_EQ(tessaline_profile_to_mm(&head, &profile_, &mm_), 0);
    double worst = 0;
    for (std::size_t i = 0; i < kPoints; ++i) {
      tessaline_measurement point{};
      ASSERT_EQ(tessaline_point_to_mm(&head, arrays_.column[i], arrays_.row[i], &point), 0);
      worst = std::max({worst, std::abs(arrays_.x[i] - point.x), std::abs(arrays_.z[i] - point.z)});
      ASSERT_NEAR(arrays_.x_sigma[i], point.x_sigma, 1e-5 * point.x_sigma);
      ASSERT_NEAR(arrays_.z_sigma[i], point.z_sigma, 1e-5 * point.z_sigma);
    }
    EXPECT_LT(worst, kClose);
    RecordProperty(lens, std::to_string(worst * 1e6) + " nm");
  }
}

TEST_F(Profiles, HaveNoMillimetresWhereTheyHaveNoPoint) {
  for (std::size_t i = 0; i < kPoints; i += 3)
    arrays_.row[i] = std::numeric_limits<float>::quiet_NaN();
  ASSERT_EQ(tessaline_profile_to_mm(&kHead, &profile_, &mm_), 0);
  for (std::size_t i = 0; i < kPoints; ++i) {
    ASSERT_EQ(std::isnan(arrays_.x[i]), i % 3 == 0);
    ASSERT_EQ(std::isnan(arrays_.z[i]), i % 3 == 0);
    ASSERT_EQ(std::isnan(arrays_.x_sigma[i]), i % 3 == 0);
    ASSERT_EQ(std::isnan(arrays_.z_sigma[i]), i % 3 == 0);
  }
}

TEST_F(Profiles, MayBeMeasuredWithoutMarks) {
  mm_.valid = nullptr;
  ASSERT_EQ(tessaline_profile_to_mm(&kHead, &profile_, &mm_), 0);
  EXPECT_THAT(arrays_.marked, Each(77));
}

TEST_F(Profiles, AreMeasuredUpToTheirPointsAndNoFurther) {
  for (std::size_t count = 0; count < 40; ++count) {
    Arrays fresh(41);
    const auto mm = fresh.Millimetres();
    profile_.point_count = count;
    ASSERT_EQ(tessaline_profile_to_mm(&kHead, &profile_, &mm), 0);
    for (std::size_t i = 0; i < 41; ++i) {
      ASSERT_EQ(fresh.x[i] != Arrays::kUntouched, i < count);
      ASSERT_EQ(fresh.z_sigma[i] != Arrays::kUntouched, i < count);
      ASSERT_EQ(fresh.marked[i] != 77, i < count);
    }
  }
}

TEST_F(Profiles, MayBeMeasuredWithoutSigma) {
  mm_.x_sigma = mm_.z_sigma = nullptr;
  ASSERT_EQ(tessaline_profile_to_mm(&kHead, &profile_, &mm_), 0);
  EXPECT_NE(arrays_.x[0], Arrays::kUntouched);
  EXPECT_THAT(arrays_.x_sigma, Each(Arrays::kUntouched));
}

TEST_F(Profiles, OfAnotherSensorAreRefused) {
  profile_.sensor_width = 2048;
  EXPECT_EQ(tessaline_profile_to_mm(&kHead, &profile_, &mm_), TESSALINE_PROFILE_SENSOR);
  profile_.sensor_width = 1456;
  profile_.sensor_height = 544;
  EXPECT_EQ(tessaline_profile_to_mm(&kHead, &profile_, &mm_), TESSALINE_PROFILE_SENSOR);
  EXPECT_THAT(arrays_.x, Each(Arrays::kUntouched));
}

TEST_F(Profiles, NeedTheirArrays) {
  EXPECT_EQ(tessaline_profile_to_mm(nullptr, &profile_, &mm_), TESSALINE_PROFILE_ARGUMENT);
  EXPECT_EQ(tessaline_profile_to_mm(&kHead, nullptr, &mm_), TESSALINE_PROFILE_ARGUMENT);
  EXPECT_EQ(tessaline_profile_to_mm(&kHead, &profile_, nullptr), TESSALINE_PROFILE_ARGUMENT);
  float* tessaline_millimetres::*const arrays[] = {
      &tessaline_millimetres::x, &tessaline_millimetres::z, &tessaline_millimetres::x_sigma,
      &tessaline_millimetres::z_sigma};
  for (const auto array : arrays) {
    auto without = mm_;
    without.*array = nullptr;
    EXPECT_EQ(tessaline_profile_to_mm(&kHead, &profile_, &without), TESSALINE_PROFILE_ARGUMENT);
  }
  auto no_rows = profile_;
  no_rows.row = nullptr;
  EXPECT_EQ(tessaline_profile_to_mm(&kHead, &no_rows, &mm_), TESSALINE_PROFILE_ARGUMENT);
  EXPECT_THAT(arrays_.x, Each(Arrays::kUntouched));
}

}  // namespace
