// y of a frame, by the encoder and by time.
#include <gtest/gtest.h>

#include "tessaline/profile.h"

namespace {

constexpr std::uint64_t kLast = ~std::uint64_t{0};

TEST(Travel, ByTheEncoderIsTheDistanceFromTheStart) {
  EXPECT_DOUBLE_EQ(tessaline_y_by_encoder(1500, 1000, 0.01), 5);
  EXPECT_DOUBLE_EQ(tessaline_y_by_encoder(1000, 1000, 0.01), 0);
  EXPECT_DOUBLE_EQ(tessaline_y_by_encoder(1500, 1000, -0.01), -5);
}

TEST(Travel, AnEncoderMayRunBackwardsAndPassZero) {
  EXPECT_DOUBLE_EQ(tessaline_y_by_encoder(900, 1000, 0.01), -1);
  EXPECT_DOUBLE_EQ(tessaline_y_by_encoder(kLast - 99, 100, 0.01), -2);
  EXPECT_DOUBLE_EQ(tessaline_y_by_encoder(100, kLast - 99, 0.01), 2);
}

TEST(Travel, ByTimeCountsTicksOfTwentyNanoseconds) {
  EXPECT_DOUBLE_EQ(tessaline_y_by_time(50'000'000, 0, 50), 50);
  EXPECT_DOUBLE_EQ(tessaline_y_by_time(1, 0, 1), 20e-9);
  EXPECT_DOUBLE_EQ(tessaline_y_by_time(0, 50'000'000, 50), -50);
}

// After weeks of counting, a step is still a step.
TEST(Travel, StaysExactForLargeStamps) {
  constexpr std::uint64_t kWeeks = std::uint64_t{1} << 62;
  EXPECT_DOUBLE_EQ(tessaline_y_by_encoder(kWeeks + 1, kWeeks, 0.01), 0.01);
}

}  // namespace
