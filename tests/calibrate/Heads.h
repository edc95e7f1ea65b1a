#pragma once

#include <cmath>
#include <cstdint>
#include <string>
#include <vector>

#include "calibrate/Solve.h"
#include "tessaline/board.h"

namespace tessaline_test {

// The sensor of a K36.
inline constexpr unsigned kWidth = 1456;
inline constexpr unsigned kHeight = 1088;

// Where the target stands: heights, tilts and shifts over the whole field of view.
inline const std::vector<std::string> kPoses{"",
                                             ",z=5,tilt=2,x=1",
                                             ",z=9,tilt=-4",
                                             ",z=13,tilt=6,x=2",
                                             ",z=2,tilt=-8",
                                             ",z=10,tilt=9",
                                             ",z=6,x=-3"};

// What a head sees of a scene; `noise` scales the laser's speckle.
inline tool::calibrate::View Look(std::uint64_t head, const std::string& scene, std::uint64_t frame,
                                  double noise) {
  std::vector<float> rows(kWidth);
  tool::calibrate::View view;
  view.name = scene;
  if (tessaline_board_head_line(head, kWidth, kHeight, scene.c_str(), frame, noise, rows.data(),
                                kWidth) != 0) {
    return view;
  }
  for (unsigned column = 0; column < kWidth; ++column) {
    const double row = rows[column];
    if (row >= 0 && row < kHeight) view.samples.push_back({static_cast<double>(column), row});
  }
  return view;
}

inline std::vector<tool::calibrate::Sight> LookAtAll(std::uint64_t head, const std::string& target,
                                                     double noise) {
  std::vector<tool::calibrate::Sight> sights;
  for (const std::string& pose : kPoses) {
    sights.push_back({Look(head, target + pose, sights.size() + 1, noise), {}, {}});
  }
  return sights;
}

}  // namespace tessaline_test
