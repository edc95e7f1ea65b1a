#include "support/Measured.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>

namespace kernel_test {

void Measured(const std::string& what, double value, const std::string& unit) {
  std::printf("measured %s: %.3g %s\n", what.c_str(), value, unit.c_str());
}

void ExpectEachWithinASecond(const std::string& what, std::vector<double> seconds) {
  ASSERT_FALSE(seconds.empty());
  std::ranges::sort(seconds);
  const std::string of = " of " + std::to_string(seconds.size());
  Measured(what + ", median" + of, seconds[seconds.size() / 2] * 1000, "ms");
  Measured(what + ", longest" + of, seconds.back() * 1000, "ms");
  EXPECT_LT(seconds.back(), 1.0) << what;
}

}  // namespace kernel_test
