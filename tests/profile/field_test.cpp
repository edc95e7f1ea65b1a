// The field: where a calibration was seen to hold, and what is said of points beside it.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <vector>

#include "profile/Heads.h"

namespace {

using namespace profile_test;  // NOLINT(google-build-using-namespace)

// A field with edges in all directions, and which of some points beside its edges lie in it.
const Corners kField{{200, 300}, {700, 250}, {1300, 300}, {1300, 700}, {800, 900}, {200, 700}};
struct Beside {
  double column, row;
  bool inside;
};
const Beside kBeside[]{
    {201, 500, true},  {199, 500, false},  {1299, 500, true},   {1301, 500, false},
    {450, 276, true},  {450, 274, false},  {1000, 276, true},   {1000, 274, false},
    {1050, 799, true}, {1050, 801, false}, {500, 799, true},    {500, 801, false},
    {200, 300, true},  {1300, 700, true},  {450, 275, true},    {200, 450, true},
    {0, 0, false},     {1455, 0, false},   {1455, 1087, false}, {0, 1087, false},
};

TEST(Point, OutsideTheFieldHasNoUncertainty) {
  for (const bool backwards : {false, true}) {
    Corners corners = kField;
    if (backwards) std::reverse(corners.begin(), corners.end());
    const auto head = With([&](auto& c) { SetField(c, corners); });
    ASSERT_EQ(tessaline_calibration_check(&head), 0);
    for (const Beside& at : kBeside) {
      tessaline_measurement usual{}, point{};
      ASSERT_EQ(tessaline_point_to_mm(&kHead, at.column, at.row, &usual), 0);
      ASSERT_EQ(tessaline_point_to_mm(&head, at.column, at.row, &point), 0);
      EXPECT_EQ(point.x, usual.x);
      EXPECT_EQ(point.z, usual.z);
      EXPECT_EQ(std::isnan(point.x_sigma), !at.inside) << at.column << ", " << at.row;
      EXPECT_EQ(std::isnan(point.z_sigma), !at.inside) << at.column << ", " << at.row;
      if (at.inside) {
        EXPECT_EQ(point.x_sigma, usual.x_sigma);
      }
    }
  }
}

TEST(Field, MayHaveAnyNumberOfCorners) {
  const Corners kRound{{700, 100}, {1000, 200}, {1100, 500}, {1000, 800},
                       {700, 900}, {400, 800},  {300, 500},  {400, 200}};
  for (std::size_t corners = 3; corners <= kRound.size(); ++corners) {
    const auto head = With([&](auto& c) {
      SetField(c, {kRound.begin(), kRound.begin() + static_cast<std::ptrdiff_t>(corners)});
    });
    EXPECT_EQ(tessaline_calibration_check(&head), 0) << corners;
    // The middle of the last edge, from the last corner to the first, and a place beyond it.
    const tessaline_pixel last = kRound[corners - 1];
    const double column = (last.column + 700) / 2.0;
    const double row = (last.row + 100) / 2.0;
    tessaline_measurement point{};
    tessaline_point_to_mm(&head, column, row, &point);
    EXPECT_FALSE(std::isnan(point.z_sigma)) << corners;
    const double step_left = (last.row - 100) / std::hypot(last.row - 100.0, last.column - 700.0);
    const double step_down = (700 - last.column) / std::hypot(last.row - 100.0, last.column - 700.);
    tessaline_point_to_mm(&head, column - step_left, row - step_down, &point);
    EXPECT_TRUE(std::isnan(point.z_sigma)) << corners;
  }
}

// Points of no line have no validity at all, wherever they would be.
TEST_F(Profiles, MarkWhatLiesOutsideTheField) {
  const auto head = With([](auto& c) { SetField(c, kField); });
  for (std::size_t i = 0; i < std::size(kBeside); ++i) {
    arrays_.column[i] = static_cast<float>(kBeside[i].column);
    arrays_.row[i] = static_cast<float>(kBeside[i].row);
  }
  for (std::size_t i = std::size(kBeside); i < kPoints; i += 3) {
    arrays_.row[i] = std::numeric_limits<float>::quiet_NaN();
  }
  ASSERT_EQ(tessaline_profile_to_mm(&kHead, &profile_, &mm_), 0);
  const Arrays usual = arrays_;
  ASSERT_EQ(tessaline_profile_to_mm(&head, &profile_, &mm_), 0);
  std::size_t outside = 0;
  for (std::size_t i = 0; i < kPoints; ++i) {
    SCOPED_TRACE(i);
    const bool is_point = !std::isnan(arrays_.row[i]);
    tessaline_measurement point{};
    tessaline_point_to_mm(&head, arrays_.column[i], arrays_.row[i], &point);
    const bool inside = i < std::size(kBeside) ? kBeside[i].inside : !std::isnan(point.z_sigma);
    ASSERT_EQ(usual.marked[i], is_point ? TESSALINE_VALID : 0);
    ASSERT_EQ(arrays_.marked[i], !is_point ? 0
                                 : inside  ? TESSALINE_VALID
                                           : TESSALINE_VALID | TESSALINE_OUTSIDE_FIELD);
    ASSERT_EQ(std::isnan(arrays_.x_sigma[i]), !(is_point && inside));
    ASSERT_EQ(std::isnan(arrays_.z_sigma[i]), !(is_point && inside));
    ASSERT_EQ(std::isnan(arrays_.x[i]), !is_point);
    if (!is_point) continue;
    ASSERT_FLOAT_EQ(arrays_.x[i], usual.x[i]);
    ASSERT_FLOAT_EQ(arrays_.z[i], usual.z[i]);
    if (inside) {
      ASSERT_FLOAT_EQ(arrays_.x_sigma[i], usual.x_sigma[i]);
    }
    outside += !inside;
  }
  EXPECT_GT(outside, 100u);
}

TEST_F(Profiles, MayBeMarkedInTheirOwnArray) {
  const auto head = With([](auto& c) { SetField(c, kField); });
  ASSERT_EQ(tessaline_profile_to_mm(&head, &profile_, &mm_), 0);
  mm_.valid = profile_.valid;
  ASSERT_EQ(tessaline_profile_to_mm(&head, &profile_, &mm_), 0);
  EXPECT_EQ(arrays_.valid, arrays_.marked);
}

}  // namespace
