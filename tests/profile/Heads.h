#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <random>
#include <vector>

#include "profile/StripBytes.h"
#include "support/Head.h"

namespace profile_test {

// The usual head, solved without an error of its own.
inline constexpr tessaline_calibration kHead = [] {
  tessaline_calibration head = tessaline_test::kHead;
  head.x_sigma = head.z_sigma = 0;
  return head;
}();

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
