#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <random>
#include <vector>

#include "profile/StripBytes.h"

namespace profile_test {

// A head as they are built: 73 mm wide, the laser plane tilted against the sensor, a lens with
// some pincushion.
inline constexpr tessaline_calibration kHead{
    .sensor_width = 1456,
    .sensor_height = 1088,
    .centre_column = 731.5,
    .centre_row = 540.25,
    .pixels_per_unit = 728,
    .distortion = {-0.031, 0.0042, -0.0007},
    .plane = {36.4, 0.42, 0.31, 0.17, -27.2, 9.6, 0.004, 0.12, 1},
    .column_sigma = 0.03,
    .row_sigma = 0.05,
    .x_sigma = 0,
    .z_sigma = 0,
    .field_corners = 0,
    .field = {}};

inline tessaline_calibration With(const std::function<void(tessaline_calibration&)>& change) {
  tessaline_calibration head = kHead;
  change(head);
  return head;
}

using Corners = std::vector<tessaline_pixel>;

inline void SetField(tessaline_calibration& c, const Corners& corners) {
  c.field_corners = static_cast<std::uint32_t>(corners.size());
  std::copy(corners.begin(), corners.end(), c.field);
}

class Profiles : public ::testing::Test {
 protected:
  static constexpr std::size_t kPoints = 1456;

  // A point in every column, the rows all over the sensor.
  Profiles() : arrays_(kPoints), profile_(arrays_.Profile()), mm_(arrays_.Millimetres()) {
    std::mt19937 random(5);
    std::uniform_real_distribution<float> rows(0, 1087);
    for (std::size_t i = 0; i < kPoints; ++i) {
      arrays_.column[i] = static_cast<float>(i);
      arrays_.row[i] = rows(random);
    }
    profile_.point_count = kPoints;
    profile_.sensor_width = 1456;
    profile_.sensor_height = 1088;
  }

  Arrays arrays_;
  tessaline_profile profile_;
  tessaline_millimetres mm_;
};

}  // namespace profile_test
