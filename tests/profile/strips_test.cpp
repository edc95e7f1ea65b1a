// From strips to profiles: every layout, how frames lie on the sensor, and what is refused.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cmath>
#include <limits>
#include <random>

#include "profile/StripBytes.h"

namespace {

using profile_test::Arrays;
using profile_test::StripBytes;
using ::testing::Each;
using ::testing::ElementsAre;

constexpr tessaline_geometry kSensor{1456, 1088, 0, 0, 1, 1, 0, 0};

using Full = tessaline_full_point;
using Short = tessaline_short_point;
using Row = tessaline_row_point;

// --- Layouts -------------------------------------------------------------------------------

TEST(Layout, PointsOfEightBytesHaveEverything) {
  StripBytes bytes(8);
  bytes.Add<Full>(7, {{3, 200, 4, 500 * 65536 + 16384}, {1455, 9, 1, 65536}});
  auto strips = bytes.Begin();
  Arrays arrays(5);
  auto profile = arrays.Profile();
  ASSERT_EQ(tessaline_strips_next(&strips, &kSensor, &profile), 0);
  EXPECT_EQ(profile.point_count, 2u);
  EXPECT_EQ(profile.frame_id, 7u);
  EXPECT_EQ(profile.time_stamp, 1007u);
  EXPECT_EQ(profile.encoder_stamp, 2007u);
  EXPECT_EQ(profile.sensor_width, 1456u);
  EXPECT_EQ(profile.sensor_height, 1088u);
  const float untouched = Arrays::kUntouched;
  EXPECT_THAT(arrays.column, ElementsAre(3, 1455, untouched, untouched, untouched));
  EXPECT_THAT(arrays.row, ElementsAre(500.25, 1, untouched, untouched, untouched));
  EXPECT_THAT(arrays.peak, ElementsAre(200, 9, 77, 77, 77));
  EXPECT_THAT(arrays.width, ElementsAre(4, 1, 77, 77, 77));
  EXPECT_THAT(arrays.valid, ElementsAre(1, 1, 77, 77, 77));
}

TEST(Layout, PointsOfFourBytesHaveNoPeakAndNoWidth) {
  StripBytes bytes(4);
  bytes.Add<Short>(1, {{12, 33}, {13, 1087 * 32}});
  auto strips = bytes.Begin();
  Arrays arrays(2);
  auto profile = arrays.Profile();
  ASSERT_EQ(tessaline_strips_next(&strips, &kSensor, &profile), 0);
  EXPECT_THAT(arrays.column, ElementsAre(12, 13));
  EXPECT_THAT(arrays.row, ElementsAre(1.03125, 1087));
  EXPECT_THAT(arrays.peak, Each(0));
  EXPECT_THAT(arrays.width, Each(0));
  EXPECT_THAT(arrays.valid, Each(1));
}

TEST(Layout, PointsOfTwoBytesAreOneForEveryColumn) {
  StripBytes bytes(2);
  bytes.Add<Row>(1, {{64}, {TESSALINE_NO_LINE}, {80}});
  auto strips = bytes.Begin();
  Arrays arrays(3);
  auto profile = arrays.Profile();
  ASSERT_EQ(tessaline_strips_next(&strips, &kSensor, &profile), 0);
  EXPECT_EQ(profile.point_count, 3u);
  EXPECT_THAT(arrays.column, ElementsAre(0, 1, 2));
  EXPECT_THAT(arrays.valid, ElementsAre(1, 0, 1));
  EXPECT_EQ(arrays.row[0], 2);
  EXPECT_TRUE(std::isnan(arrays.row[1]));
  EXPECT_EQ(arrays.row[2], 2.5);
  EXPECT_THAT(arrays.peak, Each(0));
  EXPECT_THAT(arrays.width, Each(0));
}

// 0xFFFF is row 2047.97, which a sensor of 2048 rows would have.
TEST(Layout, NoLineIsNoRowOnALargeSensorEither) {
  constexpr tessaline_geometry kGeometries[] = {{4200, 4096, 0, 0, 1, 1, 0, 0},
                                                {4200, 32768, 0, 32767, 1, 1, 0, 0},
                                                {4200, 32768, 0, 32767, 1, 16, 0, 1}};
  for (const auto& geometry : kGeometries) {
    StripBytes bytes(2);
    bytes.Add<Row>(1, {{TESSALINE_NO_LINE}, {TESSALINE_NO_LINE - 1}});
    auto strips = bytes.Begin();
    Arrays arrays(2);
    auto profile = arrays.Profile();
    ASSERT_EQ(tessaline_strips_next(&strips, &geometry, &profile), 0);
    EXPECT_EQ(arrays.valid[0], 0);
    EXPECT_TRUE(std::isnan(arrays.row[0]));
  }
}

TEST(Layout, PeakAndWidthMayBeLeftOut) {
  for (const unsigned point_bytes : {8u, 4u, 2u}) {
    StripBytes bytes(point_bytes);
    bytes.AddHeader({1, 2, 3, 4});
    bytes.Append(std::vector<char>(4 * point_bytes).data(), 4 * std::size_t{point_bytes});
    auto strips = bytes.Begin();
    Arrays arrays(4);
    auto profile = arrays.Profile();
    profile.peak = nullptr;
    profile.width = nullptr;
    EXPECT_EQ(tessaline_strips_next(&strips, &kSensor, &profile), 0);
    EXPECT_THAT(arrays.row, Each(0));
  }
}

// Headers after points of 2 and 4 bytes lie at any even address.
TEST(Layout, StripsFollowEachOtherWithoutGaps) {
  for (const unsigned point_bytes : {8u, 4u, 2u}) {
    StripBytes bytes(point_bytes);
    for (std::uint64_t strip = 1; strip <= 9; ++strip) {
      bytes.AddHeader({strip, 0, 0, strip - 1});
      bytes.Append(std::vector<char>(8 * 8).data(), (strip - 1) * point_bytes);
    }
    auto strips = bytes.Begin();
    Arrays arrays(8);
    auto profile = arrays.Profile();
    for (std::uint64_t strip = 1; strip <= 9; ++strip) {
      ASSERT_EQ(tessaline_strips_next(&strips, &kSensor, &profile), 0);
      EXPECT_EQ(profile.frame_id, strip);
      EXPECT_EQ(profile.point_count, strip - 1);
    }
    EXPECT_EQ(tessaline_strips_next(&strips, &kSensor, &profile), TESSALINE_PROFILE_END);
    EXPECT_EQ(tessaline_strips_next(&strips, &kSensor, &profile), TESSALINE_PROFILE_END);
    EXPECT_EQ(profile.point_count, 0u);
  }
}

// --- How the frame lies on the sensor ------------------------------------------------------

struct Lie {
  const char* what;
  tessaline_geometry geometry;
  double column, row;            // in the frame
  double full_column, full_row;  // on the sensor; negative: not there
};

void PrintTo(const Lie& lie, std::ostream* out) { *out << lie.what; }

// Each by hand.
const Lie kLies[] = {
    {"full", {100, 80, 0, 0, 1, 1, 0, 0}, 7, 5.5, 7, 5.5},
    {"region", {100, 80, 20, 30, 1, 1, 0, 0}, 7, 5.5, 27, 35.5},
    {"halved", {100, 80, 0, 0, 2, 2, 0, 0}, 7, 5.5, 14, 11},
    {"rows halved", {100, 80, 0, 0, 1, 2, 0, 0}, 7, 5.5, 7, 11},
    {"region of halved", {100, 80, 20, 30, 2, 2, 0, 0}, 7, 5.5, 34, 41},
    {"columns flipped", {100, 80, 0, 0, 1, 1, 1, 0}, 7, 5.5, 92, 5.5},
    {"rows flipped", {100, 80, 0, 0, 1, 1, 0, 1}, 7, 5.5, 7, 73.5},
    {"region of both flipped", {100, 80, 20, 30, 1, 1, 1, 1}, 7, 5.5, 72, 43.5},
    {"halved region, flipped", {100, 80, 20, 30, 2, 2, 1, 1}, 7, 5.5, 65, 38},
    {"last pixel", {100, 80, 0, 0, 1, 1, 0, 0}, 99, 79, 99, 79},
    {"last pixel flipped", {100, 80, 0, 0, 1, 1, 1, 1}, 99, 79, 0, 0},
    {"right of the sensor", {100, 80, 20, 0, 1, 1, 0, 0}, 80, 5, -1, -1},
    {"left of the sensor", {100, 80, 20, 0, 1, 1, 1, 0}, 80, 5, -1, -1},
    {"below the sensor", {100, 80, 0, 30, 1, 1, 0, 0}, 7, 49.5, -1, -1},
    {"above the sensor", {100, 80, 0, 30, 1, 1, 0, 1}, 7, 49.5, -1, -1},
};

class Lies : public ::testing::TestWithParam<Lie> {
 protected:
  template <typename Point>
  static void Expect(const std::vector<Point>& points) {
    const Lie& lie = GetParam();
    StripBytes bytes(sizeof(Point));
    bytes.Add<Point>(1, points);
    auto strips = bytes.Begin();
    Arrays arrays(points.size());
    auto profile = arrays.Profile();
    ASSERT_EQ(tessaline_strips_next(&strips, &lie.geometry, &profile), 0);
    const bool there = lie.full_row >= 0;
    EXPECT_EQ(arrays.valid.back(), there ? 1 : 0);
    EXPECT_EQ(std::isnan(arrays.row.back()), !there);
    if (!there) return;
    EXPECT_EQ(arrays.column.back(), lie.full_column);
    EXPECT_EQ(arrays.row.back(), lie.full_row);
  }
};

TEST_P(Lies, HoldForEveryLayout) {
  const auto column = static_cast<std::uint16_t>(GetParam().column);
  const double row = GetParam().row;
  Expect<Full>({{column, 1, 1, static_cast<std::uint32_t>(row * 65536)}});
  Expect<Short>({{column, static_cast<std::uint16_t>(row * 32)}});
  Expect<Row>(std::vector<Row>(column + 1u, Row{static_cast<std::uint16_t>(row * 32)}));
}

INSTANTIATE_TEST_SUITE_P(Profile, Lies, ::testing::ValuesIn(kLies), [](const auto& row) {
  std::string name = row.param.what;
  for (char& letter : name) {
    if (std::isalnum(static_cast<unsigned char>(letter)) == 0) letter = '_';
  }
  return name;
});

// The loops take several points at a time and the rest one by one; a number tells them apart.
TEST(Lie, IsTheSameForEveryPointOfAStrip) {
  std::mt19937 random(1);
  const tessaline_geometry geometry{4200, 2048, 84, 100, 2, 1, 1, 0};
  for (std::size_t count = 0; count < 70; ++count) {
    std::vector<Full> points(count);
    for (Full& point : points) {
      point = {static_cast<std::uint16_t>(random() % 2100), static_cast<std::uint8_t>(random()),
               static_cast<std::uint8_t>(random()), static_cast<std::uint32_t>(random())};
    }
    StripBytes bytes(8);
    bytes.Add(1, points);
    auto strips = bytes.Begin();
    Arrays arrays(count);
    auto profile = arrays.Profile();
    ASSERT_EQ(tessaline_strips_next(&strips, &geometry, &profile), 0);
    for (std::size_t i = 0; i < count; ++i) {
      const double column = 4199 - 84 - 2.0 * points[i].column;
      const double row = 100 + points[i].row / 65536.0;
      const bool there = column >= 0 && row <= 2047;
      ASSERT_EQ(arrays.valid[i], there ? 1 : 0) << i << ": " << column << ", " << row;
      ASSERT_EQ(arrays.column[i], column);
      if (there) {
        ASSERT_NEAR(arrays.row[i], row, 1 / 8192.0);
      }
      ASSERT_EQ(arrays.peak[i], points[i].peak);
      ASSERT_EQ(arrays.width[i], points[i].width);
    }
  }
}

// Rows beyond 32767 do not come out as small ones.
TEST(Lie, ARowThatNoSensorHasIsNowhere) {
  for (const std::uint32_t row : {0x80000000u, 0xFFFFFFFFu, 0xFFFF0000u, 0x7FFFFFFFu}) {
    for (const std::uint32_t flip : {0u, 1u}) {
      const tessaline_geometry geometry{1456, 1088, 0, 500, 1, 1, 0, flip};
      StripBytes bytes(8);
      bytes.Add<Full>(1, {{5, 1, 1, row}});
      auto strips = bytes.Begin();
      Arrays arrays(1);
      auto profile = arrays.Profile();
      ASSERT_EQ(tessaline_strips_next(&strips, &geometry, &profile), 0);
      EXPECT_EQ(arrays.valid[0], 0) << std::hex << row;
      EXPECT_TRUE(std::isnan(arrays.row[0]));
    }
  }
}

TEST(Lie, TheFullSensorHasNeitherOffsetNorStepNorFlip) {
  const tessaline_geometry full = tessaline_geometry_full(4096, 1080);
  EXPECT_EQ(full.sensor_width, 4096u);
  EXPECT_EQ(full.sensor_height, 1080u);
  EXPECT_EQ(full.first_column + full.first_row + full.flip_columns + full.flip_rows, 0u);
  EXPECT_EQ(full.column_step, 1u);
  EXPECT_EQ(full.row_step, 1u);
}

TEST(Lie, AnImpossibleOneIsRefused) {
  constexpr tessaline_geometry kImpossible[] = {
      {0, 80, 0, 0, 1, 1, 0, 0},      {100, 0, 0, 0, 1, 1, 0, 0},    {32769, 80, 0, 0, 1, 1, 0, 0},
      {100, 32769, 0, 0, 1, 1, 0, 0}, {100, 80, 100, 0, 1, 1, 0, 0}, {100, 80, 0, 80, 1, 1, 0, 0},
      {100, 80, 0, 0, 0, 1, 0, 0},    {100, 80, 0, 0, 1, 0, 0, 0},   {100, 80, 0, 0, 17, 1, 0, 0},
      {100, 80, 0, 0, 1, 17, 0, 0},   {100, 80, 0, 0, 1, 1, 2, 0},   {100, 80, 0, 0, 1, 1, 0, 2},
  };
  for (const auto& geometry : kImpossible) {
    StripBytes bytes(8);
    bytes.Add<Full>(1, {{5, 1, 1, 5}});
    auto strips = bytes.Begin();
    Arrays arrays(1);
    auto profile = arrays.Profile();
    EXPECT_EQ(tessaline_strips_next(&strips, &geometry, &profile), TESSALINE_PROFILE_GEOMETRY);
    EXPECT_EQ(arrays.row[0], Arrays::kUntouched);
    EXPECT_EQ(strips.strips_left, 1u);
  }
}

// --- What is refused -----------------------------------------------------------------------

struct Damage {
  const char* what;
  std::uint64_t point_count;  // that the header claims
  std::size_t point_bytes_there;
  std::size_t cut_off;
  std::uint32_t strips;
};

void PrintTo(const Damage& damage, std::ostream* out) { *out << damage.what; }

class Damages : public ::testing::TestWithParam<Damage> {};

TEST_P(Damages, AreReportedAndNothingIsReadBeyond) {
  const Damage& damage = GetParam();
  for (const unsigned point_bytes : {8u, 4u, 2u}) {
    StripBytes bytes(point_bytes);
    bytes.AddHeader({1, 2, 3, damage.point_count});
    bytes.Append(std::vector<char>(100).data(), damage.point_bytes_there);
    bytes.CutOff(damage.cut_off);
    auto strips = bytes.Begin(damage.strips);
    const auto before = strips;
    Arrays arrays(50);
    auto profile = arrays.Profile();
    int result = 0;
    for (int i = 0; i < 10 && result == 0; ++i) {
      result = tessaline_strips_next(&strips, &kSensor, &profile);
    }
    EXPECT_EQ(result, TESSALINE_PROFILE_MALFORMED);
    EXPECT_EQ(tessaline_strips_next(&strips, &kSensor, &profile), TESSALINE_PROFILE_MALFORMED);
    EXPECT_EQ(profile.point_count, 0u);
    EXPECT_LE(strips.next, before.next + before.bytes_left);
  }
}

INSTANTIATE_TEST_SUITE_P(
    Profile, Damages,
    ::testing::Values(Damage{"no_bytes", 0, 0, 32, 1}, Damage{"half_a_header", 0, 0, 16, 1},
                      Damage{"a_header_less_one_byte", 0, 0, 1, 1},
                      Damage{"a_point_less_one_byte", 1, 1, 0, 1},
                      Damage{"one_point_too_many", 11, 20, 0, 1},
                      Damage{"a_count_beyond_memory", ~std::uint64_t{0}, 80, 0, 1},
                      // Times the size of a point, this is small again.
                      Damage{"a_count_that_wraps", (std::uint64_t{1} << 63) + 1, 80, 0, 1},
                      Damage{"bytes_behind_the_last_strip", 0, 1, 0, 1},
                      Damage{"strips_that_are_not_there", 0, 0, 0, 2},
                      Damage{"bytes_without_a_strip", 0, 0, 0, 0}),
    [](const auto& row) { return std::string(row.param.what); });

// Strips of 8 bytes a point, read as points of 2 bytes.
TEST(Damage, AWrongPointSizeDoesNotPass) {
  StripBytes right(8);
  right.Add<Full>(1, std::vector<Full>(100, Full{5, 200, 4, 500 * 65536}));
  auto strips = right.Begin();
  strips.point_bytes = 2;
  Arrays arrays(1456);
  auto profile = arrays.Profile();
  EXPECT_EQ(tessaline_strips_next(&strips, &kSensor, &profile), 0);
  EXPECT_EQ(tessaline_strips_next(&strips, &kSensor, &profile), TESSALINE_PROFILE_MALFORMED);
}

// Whole strips before a damaged one are read.
TEST(Damage, WhatIsWholeBeforeIsRead) {
  StripBytes bytes(8);
  bytes.Add<Full>(1, {{5, 1, 1, 5}});
  bytes.AddHeader({2, 0, 0, 5});
  auto strips = bytes.Begin();
  Arrays arrays(9);
  auto profile = arrays.Profile();
  EXPECT_EQ(tessaline_strips_next(&strips, &kSensor, &profile), 0);
  EXPECT_EQ(profile.frame_id, 1u);
  EXPECT_EQ(tessaline_strips_next(&strips, &kSensor, &profile), TESSALINE_PROFILE_MALFORMED);
}

TEST(Looks, AreWantedBothOrNotAtAll) {
  for (const std::size_t points : {0u, 1u}) {
    StripBytes bytes(4);
    bytes.Add<Short>(1, std::vector<Short>(points, Short{1, 32}));
    auto strips = bytes.Begin();
    Arrays arrays(1);
    auto profile = arrays.Profile();
    profile.width = nullptr;
    EXPECT_EQ(tessaline_strips_next(&strips, &kSensor, &profile), TESSALINE_PROFILE_ARGUMENT);
    EXPECT_EQ(profile.point_count, 0u);
  }
}

TEST(Capacity, IsAskedForAndTheStripComesAgain) {
  StripBytes bytes(4);
  bytes.Add<Short>(6, {{1, 32}, {2, 64}, {3, 96}});
  auto strips = bytes.Begin();
  Arrays small(2);
  auto profile = small.Profile();
  EXPECT_EQ(tessaline_strips_next(&strips, &kSensor, &profile), TESSALINE_PROFILE_CAPACITY);
  EXPECT_EQ(profile.point_count, 3u);
  EXPECT_THAT(small.row, Each(Arrays::kUntouched));
  Arrays enough(3);
  profile = enough.Profile();
  EXPECT_EQ(tessaline_strips_next(&strips, &kSensor, &profile), 0);
  EXPECT_EQ(profile.frame_id, 6u);
  EXPECT_THAT(enough.row, ElementsAre(1, 2, 3));
}

TEST(Argument, ThatIsMissingIsRefused) {
  const unsigned char byte = 0;
  tessaline_strips strips{};
  EXPECT_EQ(tessaline_strips_begin(nullptr, &byte, 1, 1, 8), TESSALINE_PROFILE_ARGUMENT);
  EXPECT_EQ(tessaline_strips_begin(&strips, nullptr, 1, 1, 8), TESSALINE_PROFILE_ARGUMENT);
  for (const unsigned size : {0u, 1u, 3u, 5u, 16u, 0x80000008u}) {
    EXPECT_EQ(tessaline_strips_begin(&strips, &byte, 1, 1, size), TESSALINE_PROFILE_ARGUMENT);
  }
  EXPECT_EQ(tessaline_strips_begin(&strips, nullptr, 0, 0, 8), 0);

  StripBytes bytes(8);
  bytes.Add<Full>(1, {{5, 1, 1, 5}});
  Arrays arrays(1);
  auto profile = arrays.Profile();
  strips = bytes.Begin();
  EXPECT_EQ(tessaline_strips_next(nullptr, &kSensor, &profile), TESSALINE_PROFILE_ARGUMENT);
  EXPECT_EQ(tessaline_strips_next(&strips, nullptr, &profile), TESSALINE_PROFILE_ARGUMENT);
  EXPECT_EQ(tessaline_strips_next(&strips, &kSensor, nullptr), TESSALINE_PROFILE_ARGUMENT);
  float* tessaline_profile::*const floats[] = {&tessaline_profile::column, &tessaline_profile::row};
  for (const auto member : floats) {
    auto without = profile;
    without.*member = nullptr;
    EXPECT_EQ(tessaline_strips_next(&strips, &kSensor, &without), TESSALINE_PROFILE_ARGUMENT);
  }
  std::uint8_t* tessaline_profile::*const small[] = {
      &tessaline_profile::valid, &tessaline_profile::peak, &tessaline_profile::width};
  for (const auto member : small) {
    auto without = profile;
    without.*member = nullptr;
    EXPECT_EQ(tessaline_strips_next(&strips, &kSensor, &without), TESSALINE_PROFILE_ARGUMENT);
  }
  EXPECT_EQ(tessaline_strips_next(&strips, &kSensor, &profile), 0);
}

// The last byte of the strips is the last one of a page, and the next page cannot be read.
TEST(Bytes, AreTheOnlyOnesRead) {
  const auto page = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
  void* memory =
      mmap(nullptr, 2 * page, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  ASSERT_NE(memory, MAP_FAILED);
  auto* const end = static_cast<unsigned char*>(memory) + page;
  ASSERT_EQ(mprotect(end, page, PROT_NONE), 0);
  Arrays arrays(200);
  auto profile = arrays.Profile();
  for (const unsigned point_bytes : {8u, 4u, 2u}) {
    for (std::uint64_t points = 0; points < 200; ++points) {
      const std::size_t size = 32 + points * point_bytes;
      const tessaline_strip_header header{1, 2, 3, points};
      std::memcpy(end - size, &header, sizeof header);
      tessaline_strips strips{};
      ASSERT_EQ(tessaline_strips_begin(&strips, end - size, size, 1, point_bytes), 0);
      ASSERT_EQ(tessaline_strips_next(&strips, &kSensor, &profile), 0);
    }
  }
  munmap(memory, 2 * page);
}

TEST(Text, IsThereForEveryResult) {
  for (int result = TESSALINE_PROFILE_OUTSIDE; result <= TESSALINE_PROFILE_END; ++result) {
    EXPECT_STRNE(tessaline_profile_text(result), tessaline_profile_text(99)) << result;
  }
  EXPECT_STREQ(tessaline_profile_text(TESSALINE_PROFILE_SENSOR),
               "the calibration is that of another sensor");
  EXPECT_STREQ(tessaline_profile_text(-99), tessaline_profile_text(99));
}

}  // namespace
