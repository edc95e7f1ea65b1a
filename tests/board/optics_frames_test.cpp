// Frames through real optics and of calibration targets, seen by a plain capture program.

#include <gmock/gmock.h>

#include <algorithm>
#include <optional>

#include "SensorFramesFixture.h"

namespace {

using namespace board_test;  // NOLINT(google-build-using-namespace)

// A point of a strip with its place on the full sensor and in the laser plane.
struct Measured {
  double column, row;
  double x, z;
  double mm_per_row;
  unsigned peak, width;
};

class OpticsFrames : public SensorFrames {
 protected:
  using SensorFrames::SensorFrames;

  static void See(const char* scene, const char* optics = "real") {
    ASSERT_EQ(tessaline_board_set_scene(scene), 0);
    ASSERT_EQ(tessaline_board_set_optics(optics), 0);
  }

  static Measured Measure(const View& view, const StripPoint& point) {
    Measured measured{};
    measured.column = view.left + 1.0 * point.column * view.column_step;
    measured.row = view.top + point.row / 65536.0 * view.row_step;
    if (view.flip_x) measured.column = view.full_width - 1 - measured.column;
    if (view.flip_y) measured.row = view.full_height - 1 - measured.row;
    measured.peak = point.peak;
    measured.width = point.width;
    double x_below = 0, z_below = 0;
    EXPECT_EQ(tessaline_board_point_to_mm(measured.column, measured.row, &measured.x, &measured.z),
              0);
    EXPECT_EQ(tessaline_board_point_to_mm(measured.column, measured.row + 1, &x_below, &z_below),
              0);
    measured.mm_per_row = measured.z - z_below;
    return measured;
  }

  // The points of a fresh strip. Notes where the belt was.
  std::vector<Measured> Points(const View& view) {
    const auto bytes = FreshStrip();
    const StripHeader header = HeaderAt(bytes, 0);
    belt_ = BeltPosition(header.time_stamp);
    std::vector<Measured> points;
    for (std::uint64_t i = 0; i < header.point_count; ++i) {
      points.push_back(Measure(view, PointAt(bytes, sizeof header + i * sizeof(StripPoint))));
    }
    return points;
  }

  // Waits, without real waiting, until the belt's pattern of 120 mm is nearly there.
  void PassTo(double y) {
    Points(kFull);
    double way = std::fmod(y - std::fmod(belt_, 120) + 240, 120);
    usleep(static_cast<useconds_t>(way / 50 * 1e6));
  }

  // The points of a frame near there. A busy machine may come too late; the pattern comes again.
  std::vector<Measured> PointsNear(double y, double tolerance) {
    for (int lap = 0; lap < 50; ++lap) {
      PassTo(y - tolerance / 2);
      std::vector<Measured> points = Points(kFull);
      if (std::abs(std::fmod(belt_, 120) - y) <= tolerance) return points;
    }
    ADD_FAILURE() << "no frame near " << y << " mm";
    return {};
  }

  // Standard deviation of the points' distance from the height at their x, in rows.
  template <typename HeightAt>
  static double Noise(const std::vector<Measured>& points, HeightAt height) {
    double squares = 0;
    unsigned count = 0;
    for (const Measured& point : points) {
      const double z = height(point.x);
      const bool at_edge =
          std::abs(height(point.x - 0.05) - z) > 0.5 || std::abs(height(point.x + 0.05) - z) > 0.5;
      if (at_edge) continue;
      const double rows = (point.z - z) / point.mm_per_row;
      EXPECT_LT(std::abs(rows), 1) << "column " << point.column;
      squares += rows * rows;
      ++count;
    }
    return std::sqrt(squares / std::max(count, 1u));
  }

  static constexpr View kFull{
      .full_width = 2048, .full_height = 1152, .width = 2048, .height = 1152};

  double belt_ = 0;
};

double PlaneHeight(double x) { return 4 + x * std::tan(3 * M_PI / 180); }

double StairsHeight(double x) {
  const int tread = static_cast<int>(std::floor((x + 27) / 6));
  return tread < 0 || tread > 8 ? 0 : 3 * (4 - std::abs(tread - 4));
}

// --- K39: the whole sensor, regions and reduced readout

class GsprintOptics : public OpticsFrames {
 protected:
  GsprintOptics() : OpticsFrames("K3920", {"921", "934"}, fpga::kZynqRegions) {}

  void SetUp() override {
    OpticsFrames::SetUp();
    SetSensor({{0x0000, 1}, {0x2400, 0x10}, {0x1C00, 1}});
    SetSize(2048, 1152);
    Set(fpga::kReg.EXP_TIME_1, 150);  // a line of about 110 grey values
  }
};

TEST_F(GsprintOptics, IdealOnesComeBackExactly) {
  See("plane", "real");
  See("belt", "ideal");
  ExpectScene(kFull);
  double x = 0, z = 0;
  ASSERT_EQ(tessaline_board_point_to_mm(300, tessaline_board_scene_row(7.5), &x, &z), 0);
  EXPECT_DOUBLE_EQ(x, tessaline_board_scene_x(300));
  EXPECT_NEAR(z, 7.5, 1e-12);
}

TEST_F(GsprintOptics, SelectingABoardMakesThemIdeal) {
  See("plane", "real");
  OpticsFrames::TearDown();
  SetUp();
  ExpectScene(kFull);
}

TEST_F(GsprintOptics, ShowTargetsExactlyWhenIdeal) {
  See("stairs", "ideal");
  const std::vector<Measured> points = Points(kFull);
  EXPECT_EQ(points.size(), 2048u);
  for (const Measured& point : points) ASSERT_NEAR(point.z, StairsHeight(point.x), 0.001);
  See("plane,z=4,tilt=3", "ideal");
  for (const Measured& point : Points(kFull)) {
    ASSERT_NEAR(point.z, PlaneHeight(point.x), 0.001);
  }
}

TEST_F(GsprintOptics, ShowASurfaceWithinTheNoise) {
  See("plane,z=4,tilt=3");
  const std::vector<Measured> points = Points(kFull);
  EXPECT_GT(points.size(), 2000u);
  EXPECT_NEAR(Noise(points, PlaneHeight), 0.085, 0.006);
}

TEST_F(GsprintOptics, HoldInARegion) {
  See("stairs", "real:5");
  SetSensor({{0x0140, (400 + 4) & 0xFF}, {0x0141, (400 + 4) >> 8}});
  Set(fpga::kReg.ISP_WIDTH, 4);
  SetSize(1024, 600);
  View view = kFull;
  view.left = 128;
  view.top = 400;
  view.width = 1024;
  view.height = 600;
  const std::vector<Measured> points = Points(view);
  EXPECT_GT(points.size(), 900u);
  EXPECT_NEAR(Noise(points, StairsHeight), 0.085, 0.01);
}

TEST_F(GsprintOptics, HoldInReducedReadout) {
  See("stairs", "real:6");
  SetSensor({{0x0110, 1}});
  SetSize(1024, 576);
  View view = kFull;
  view.width = 1024;
  view.height = 576;
  view.column_step = view.row_step = 2;
  EXPECT_NEAR(Noise(Points(view), StairsHeight), 0.085, 0.01);
}

TEST_F(GsprintOptics, ShowTheBeltsObjects) {
  See("belt", "real:2");
  double highest = 0;
  for (const double y : {15.0, 25.0, 35.0, 60.0, 70.0, 80.0, 100.0}) {
    const std::vector<Measured> points = PointsNear(y, 3);
    EXPECT_GT(points.size(), 1600u) << y;
    EXPECT_LT(Noise(points, [this](double x) { return tessaline_board_scene_height(x, belt_); }),
              0.15)
        << y;
    for (const Measured& point : points) highest = std::max(highest, point.z);
  }
  EXPECT_GT(highest, 9.5);
}

unsigned CountWithin(const std::vector<Measured>& points, double left, double right) {
  return static_cast<unsigned>(std::count_if(points.begin(), points.end(), [=](const auto& point) {
    return point.x > left && point.x < right;
  }));
}

TEST_F(GsprintOptics, ObjectsCastShadowsOutwards) {
  See("belt", "real:3");
  const std::vector<Measured> beside_stairs = PointsNear(30, 5);
  EXPECT_EQ(CountWithin(beside_stairs, 32.02, 32 + 32 * 9 / 191.0 - 0.02), 0u);
  EXPECT_GT(CountWithin(beside_stairs, 34, 35), 20u);
  EXPECT_GT(CountWithin(beside_stairs, 3, 3.8), 15u);  // on the side of the light
}

// The camera is where the belt has passed, so what has just passed hides it.
TEST_F(GsprintOptics, ObjectsHideTheBeltBehindThem) {
  See("belt", "real:3");
  const std::vector<Measured> hidden = PointsNear(87, 1.5);
  EXPECT_EQ(CountWithin(hidden, -31, -5), 0u);  // by the ramp
  EXPECT_GT(CountWithin(hidden, -3, 3), 150u);
  EXPECT_GT(CountWithin(PointsNear(102, 3), -31, -5), 700u);
}

TEST_F(GsprintOptics, TooMuchLightMakesAWideAndNoisyLine) {
  See("plane,z=4,tilt=3");
  const std::vector<Measured> usual = Points(kFull);
  Set(fpga::kReg.EXP_TIME_1, 3000);
  const std::vector<Measured> bright = Points(kFull);
  const auto width = [](const auto& points) {
    double sum = 0;
    for (const Measured& point : points) sum += point.width;
    return sum / static_cast<double>(points.size());
  };
  for (const Measured& point : bright) ASSERT_EQ(point.peak, 255u);
  for (const Measured& point : usual) ASSERT_LT(point.peak, 255u);
  EXPECT_GT(width(bright), width(usual) + 2.5);
  EXPECT_GT(Noise(bright, PlaneHeight), 2 * Noise(usual, PlaneHeight));
}

TEST_F(GsprintOptics, TooLittleLightMakesANoisyLineAndThenNone) {
  See("plane,z=4,tilt=3");
  const double usual = Noise(Points(kFull), PlaneHeight);
  Set(fpga::kReg.RIS_THRESHOLD, 10);
  Set(fpga::kReg.EXP_TIME_1, 25);
  EXPECT_GT(Noise(Points(kFull), PlaneHeight), 1.5 * usual);
  Set(fpga::kReg.EXP_TIME_1, 8);
  EXPECT_EQ(Points(kFull).size(), 0u);
}

TEST_F(GsprintOptics, PeaksFollowTheLightWithSpeckle) {
  See("plane");
  double sum = 0, squares = 0;
  const std::vector<Measured> points = Points(kFull);
  for (const Measured& point : points) {
    sum += point.peak;
    squares += 1.0 * point.peak * point.peak;
  }
  const double mean = sum / static_cast<double>(points.size());
  const double deviation = std::sqrt(squares / static_cast<double>(points.size()) - mean * mean);
  EXPECT_NEAR(deviation / mean, 0.1, 0.01);
}

TEST_F(GsprintOptics, ImagesAndStripsShowTheSameLine) {
  See("sawtooth,z=3");
  tessaline_board_keep_checksums(0);
  RouteTo(true);
  VideoClient client("/dev/video0");
  client.Start(2048, 1153, 2);
  TriggerOn();
  const auto image = client.Dequeue();
  ASSERT_FALSE(image.empty());
  // Blocks of 16 pixels lie in four planes in turn.
  const auto pixel = [&](unsigned column, unsigned row) {
    const std::size_t place = std::size_t{row} * 2048 + column;
    const std::size_t block = place / 16;
    return image[block % 4 * (2048 * 1152 / 4) + block / 4 * 16 + place % 16];
  };
  unsigned seen = 0;
  for (unsigned column = 0; column < 2048; column += 64) {
    double weight = 0, sum = 0;
    for (unsigned row = 0; row < 1152; ++row) {
      if (pixel(column, row) < 30) continue;
      weight += pixel(column, row);
      sum += 1.0 * pixel(column, row) * row;
    }
    if (weight == 0) continue;
    ++seen;
    Measured measured{};
    ASSERT_EQ(tessaline_board_point_to_mm(column, sum / weight, &measured.x, &measured.z), 0);
    const double in_pitch = measured.x - 8 * std::floor(measured.x / 8);
    EXPECT_NEAR(measured.z, 3 + std::min(in_pitch, 8 - in_pitch), 0.03) << column;
  }
  EXPECT_GT(seen, 28u);
}

// --- K38: flips

class GmaxOptics : public OpticsFrames {
 protected:
  GmaxOptics() : OpticsFrames("K3820", {"921", "934"}, fpga::kZynqRegions) {}

  void SetUp() override {
    OpticsFrames::SetUp();
    SetSensor({{0x00, 2}});
    SetSize(4800, 2048);  // 150 blocks of 28 pixels, which the FPGA counts as 32
    Set(fpga::kReg.EXP_TIME_1, 110);
    See("plane,z=4,tilt=3", "real:9");
  }

  static constexpr View kFull{
      .full_width = 4200, .full_height = 2048, .width = 4200, .height = 2048};
};

TEST_F(GmaxOptics, HoldWithColumnsTurnedRound) {
  SetSensor({{0x01, 0x10}});
  View view = kFull;
  view.flip_x = true;
  const std::vector<Measured> points = Points(view);
  EXPECT_GT(points.size(), 4100u);
  EXPECT_NEAR(Noise(points, PlaneHeight), 0.085, 0.006);
}

TEST_F(GmaxOptics, HoldWithRowsTurnedRoundInARegion) {
  SetSensor({{0xDE, 0}, {0x13, 104}});
  Set(fpga::kReg.ISP_WIDTH, 3);
  SetSize(40 * 32, 1800);
  View view = kFull;
  view.flip_y = true;
  view.top = 100;
  view.left = 84;
  view.width = 1120;
  view.height = 1800;
  const std::vector<Measured> points = Points(view);
  EXPECT_GT(points.size(), 1080u);
  EXPECT_NEAR(Noise(points, PlaneHeight), 0.085, 0.008);
}

TEST_F(GmaxOptics, AnotherSeedIsAnotherHead) {
  const double before = Noise(Points(kFull), PlaneHeight);
  const std::vector<Measured> points = Points(kFull);
  ASSERT_EQ(tessaline_board_set_optics("real:10"), 0);
  double x = 0, z = 0;
  ASSERT_EQ(tessaline_board_point_to_mm(points[9].column, points[9].row, &x, &z), 0);
  EXPECT_GT(std::abs(z - points[9].z), 0.05);
  EXPECT_NEAR(Noise(Points(kFull), PlaneHeight), before, 0.006);
}

}  // namespace
