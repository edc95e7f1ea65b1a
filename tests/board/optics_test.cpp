// Heads and calibration targets, without frames: what the interface says about them.

#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <limits>
#include <numbers>
#include <string>
#include <vector>

#include "board/BoardFixture.h"

namespace {

struct Size {
  unsigned width, height;
};
constexpr Size kSensors[] = {{1456, 1088}, {2064, 1544}, {4200, 2048},
                             {4200, 1024}, {2048, 1152}, {4096, 1080}};
constexpr Size kOne{2048, 1152};
constexpr unsigned kHeads = 200;

struct Point {
  double x, z;
};

Point Seen(unsigned seed, Size size, double column, double row) {
  Point point{};
  EXPECT_EQ(
      tessaline_board_head_to_mm(seed, size.width, size.height, column, row, &point.x, &point.z),
      0);
  return point;
}

std::vector<float> Line(unsigned seed, const std::string& scene, double noise = 0,
                        unsigned frame_id = 1) {
  std::vector<float> rows(kOne.width);
  EXPECT_EQ(tessaline_board_head_line(seed, kOne.width, kOne.height, scene.c_str(), frame_id, noise,
                                      rows.data(), kOne.width),
            0);
  return rows;
}

// The points of a line without noise.
std::vector<Point> Points(unsigned seed, const std::string& scene) {
  std::vector<Point> points;
  const std::vector<float> rows = Line(seed, scene);
  for (unsigned column = 0; column < kOne.width; ++column) {
    if (!std::isnan(rows[column])) points.push_back(Seen(seed, kOne, column, rows[column]));
  }
  return points;
}

// --- Heads ---------------------------------------------------------------------------------

TEST(Heads, SeeTheirFieldUprightAndOnThisSideOfTheHorizon) {
  constexpr int kParts = 12;
  for (const Size& size : kSensors) {
    for (unsigned seed = 0; seed < kHeads; ++seed) {
      for (int i = 0; i <= kParts; ++i) {
        double before_x = -60, before_z = 60;
        for (int j = 0; j <= kParts; ++j) {
          const double here = (size.width - 1.0) * i / kParts;
          const Point along =
              Seen(seed, size, (size.width - 1.0) * j / kParts, (size.height - 1.0) * i / kParts);
          const Point down = Seen(seed, size, here, (size.height - 1.0) * j / kParts);
          ASSERT_GT(along.x, before_x) << "seed " << seed;
          ASSERT_LT(down.z, before_z) << "seed " << seed;
          before_x = along.x;
          before_z = down.z;
        }
        ASSERT_LT(before_x, 60);
        ASSERT_GT(before_z, -60);
      }
    }
  }
}

TEST(Heads, HaveNearlyTheFieldOfIdealOptics) {
  for (const Size& size : kSensors) {
    for (unsigned seed = 0; seed < kHeads; ++seed) {
      const double belt = 0.75 * size.height;
      const double width = Seen(seed, size, size.width - 1.0, belt).x - Seen(seed, size, 0, belt).x;
      ASSERT_NEAR(width, 72.8, 1) << "seed " << seed;
      for (const double part : {0.0, 0.5, 1.0}) {
        const double column = part * (size.width - 1);
        ASSERT_NEAR(Seen(seed, size, column, belt).z, 0, 4) << "seed " << seed;
        ASSERT_NEAR(Seen(seed, size, column, 0.25 * size.height).z, 20, 4) << "seed " << seed;
      }
    }
  }
}

TEST(Heads, DifferFromIdealOpticsAndFromEachOther) {
  const Point one = Seen(1, kOne, 100, 900);
  const Point same = Seen(1, kOne, 100, 900);
  const Point two = Seen(2, kOne, 100, 900);
  EXPECT_EQ(one.x, same.x);
  EXPECT_GT(std::hypot(one.x - two.x, one.z - two.z), 0.05);
  EXPECT_GT(std::abs(one.x - (100 - 1024) * 72.8 / 2048), 0.05);
}

// A seed is the same head on every machine, so its numbers never change.
TEST(Heads, StayTheSame) {
  const Point point = Seen(1, {1456, 1088}, 300, 700);
  EXPECT_NEAR(point.x, -20.97954223, 1e-6);
  EXPECT_NEAR(point.z, 3.83566503, 1e-6);
}

// Perspective without distortion keeps lines straight; these lenses bend them by whole pixels.
TEST(Heads, BendStraightLines) {
  const std::vector<float> rows = Line(1, "plane");
  const double ends = (rows.front() + rows.back()) / 2.0;
  EXPECT_GT(std::abs(rows[kOne.width / 2] - ends), 1);
}

// --- Noise ---------------------------------------------------------------------------------

TEST(Speckle, IsNormalAndOfItsSize) {
  constexpr unsigned kFrames = 100;
  const std::vector<float> truth = Line(1, "plane");
  double sum = 0, squares = 0;
  unsigned count = 0, beyond_two_sigma = 0, missing = 0;
  for (unsigned frame = 1; frame <= kFrames; ++frame) {
    const std::vector<float> rows = Line(1, "plane", 1, frame);
    for (unsigned column = 0; column < kOne.width; ++column) {
      if (std::isnan(rows[column])) {
        ++missing;
        continue;
      }
      const double noise = double{rows[column]} - truth[column];
      ++count;
      sum += noise;
      squares += noise * noise;
      beyond_two_sigma += std::abs(noise) > 0.16;
    }
  }
  EXPECT_NEAR(sum / count, 0, 0.001);
  EXPECT_NEAR(std::sqrt(squares / count), 0.08, 0.001);
  EXPECT_NEAR(1.0 * beyond_two_sigma / count, 0.0455, 0.002);
  EXPECT_NEAR(1.0 * missing / (kFrames * kOne.width), 0.005, 0.0007);
}

TEST(Speckle, IsTheSameForTheSameFrameOnly) {
  const std::vector<float> rows = Line(1, "plane", 1, 7);
  const std::vector<float> again = Line(1, "plane", 1, 7);
  const std::vector<float> other = Line(1, "plane", 1, 8);
  unsigned same = 0, both = 0;
  for (unsigned column = 0; column < kOne.width; ++column) {
    if (std::isnan(rows[column])) continue;
    ASSERT_EQ(rows[column], again[column]);
    both += !std::isnan(other[column]);
    same += rows[column] == other[column];
  }
  EXPECT_GT(both, 1900u);
  EXPECT_LT(same, 10u);
}

// --- Targets -------------------------------------------------------------------------------

// A point in the target's own frame.
Point Own(Point point, double x, double z, double tilt) {
  const double turn = tilt * std::numbers::pi / 180;
  const double dx = point.x - x;
  const double dz = point.z - z;
  return {dx * std::cos(turn) + dz * std::sin(turn), dz * std::cos(turn) - dx * std::sin(turn)};
}

double ToothHeight(double s) {
  const double in_pitch = s - 8 * std::floor(s / 8);
  return in_pitch < 4 ? in_pitch : 8 - in_pitch;
}

double TreadHeight(double s) {
  const int tread = static_cast<int>(std::floor((s + 27) / 6));
  return tread < 0 || tread > 8 ? 0 : 3 * (4 - std::abs(tread - 4));
}

constexpr double kExact = 1e-5;  // mm; rows are single precision

TEST(Targets, APlaneIsWhereItsPosePutsIt) {
  for (unsigned seed = 1; seed <= 20; ++seed) {
    const std::vector<Point> points = Points(seed, "plane,tilt=-7.5,x=3,z=4");
    EXPECT_GT(points.size(), 2000u);
    for (const Point& point : points) ASSERT_NEAR(Own(point, 3, 4, -7.5).z, 0, kExact);
  }
}

TEST(Targets, ASawtoothIsWhereItsPosePutsIt) {
  for (unsigned seed = 1; seed <= 20; ++seed) {
    const std::vector<Point> points = Points(seed, "sawtooth,x=1,z=5,tilt=2");
    EXPECT_EQ(points.size(), kOne.width);
    for (const Point& point : points) {
      const Point own = Own(point, 1, 5, 2);
      ASSERT_NEAR(own.z, ToothHeight(own.x), kExact) << own.x;
    }
  }
}

TEST(Targets, StairsAreWhereTheirPosePutsThem) {
  for (unsigned seed = 1; seed <= 20; ++seed) {
    const std::vector<Point> points = Points(seed, "stairs,z=-2,tilt=-9");
    EXPECT_GT(points.size(), 1900u);
    for (const Point& point : points) {
      const Point own = Own(point, 0, -2, -9);
      ASSERT_NEAR(own.z, TreadHeight(own.x + (own.x < 0 ? 1e-6 : -1e-6)), kExact) << own.x;
    }
  }
}

TEST(Targets, TheBeltIsFlat) {
  const std::vector<Point> points = Points(1, "belt");
  EXPECT_EQ(points.size(), kOne.width);
  for (const Point& point : points) ASSERT_NEAR(point.z, 0, kExact);
}

// The fan comes from 200 mm above the middle: the last step down, 3 mm at 21 mm, keeps the light
// from 21 * 3 / 197 mm behind it. A camera that is nearer than that sees even less.
TEST(Shadows, AreBehindSteps) {
  double widest = 0;
  for (unsigned seed = 1; seed <= 20; ++seed) {
    for (const int side : {-1, 1}) {
      double before = 0, behind = 60;
      for (const Point& point : Points(seed, "stairs")) {
        const double x = side * point.x;
        if (x <= 21) before = std::max(before, x);
        if (x > 21) behind = std::min(behind, x);
      }
      EXPECT_NEAR(before, 21, 0.05);
      EXPECT_GT(behind, 21 + 21 * 3 / 197.0);
      EXPECT_LT(behind, 21 + 0.6);
      widest = std::max(widest, behind - 21);
    }
  }
  EXPECT_GT(widest, 0.42);
}

TEST(Shadows, DoNotFallOnWhatRises) {
  for (const Point& point : Points(1, "stairs,x=-30")) {
    // Only the outer half of the stairs is in the field, rising towards the middle.
    ASSERT_NEAR(point.z, TreadHeight(point.x + 30), kExact);
  }
}

// --- What is refused -----------------------------------------------------------------------

constexpr const char* kNoScene[] = {"",           "ball",         "stairs,",        "plane,x",
                                    "plane,x=",   "plane,x=1mm",  "plane,y=1",      "plane,tilt=16",
                                    "plane,x=51", "plane,z=-51",  "plane,tilt=nan", "belt,x=1",
                                    "Plane",      "plane;tilt=2", "plane,,x=1",     "plane, x=1"};
constexpr const char* kNoOptics[] = {
    "", "Real", "real:", "real:-1", "real:1x", "ideal:1", "real:18446744073709551616"};

TEST(Refused, AreScenesAndOpticsThatDoNotExist) {
  std::vector<float> rows(16);
  ASSERT_EQ(tessaline_board_select("K3920"), 0);
  for (const char* scene : kNoScene) {
    EXPECT_EQ(tessaline_board_set_scene(scene), -1) << scene;
    EXPECT_EQ(tessaline_board_head_line(1, 2048, 1152, scene, 1, 1, rows.data(), 16), -1) << scene;
  }
  for (const char* optics : kNoOptics) EXPECT_EQ(tessaline_board_set_optics(optics), -1) << optics;
  EXPECT_EQ(tessaline_board_set_scene(nullptr), -1);
  EXPECT_EQ(tessaline_board_set_optics(nullptr), -1);
  tessaline_board_unplug();
  EXPECT_EQ(tessaline_board_set_scene("plane"), -1);
  EXPECT_EQ(tessaline_board_set_optics("real"), -1);
}

TEST(Refused, AreImpossibleSensorsAndNoise) {
  constexpr double kNan = std::numeric_limits<double>::quiet_NaN();
  std::vector<float> rows(16);
  double x = 0, z = 0;
  EXPECT_EQ(tessaline_board_head_line(1, 0, 1152, "plane", 1, 1, rows.data(), 16), -1);
  EXPECT_EQ(tessaline_board_head_line(1, 2048, 40000, "plane", 1, 1, rows.data(), 16), -1);
  EXPECT_EQ(tessaline_board_head_line(1, 2048, 1152, "plane", 1, -1, rows.data(), 16), -1);
  EXPECT_EQ(tessaline_board_head_line(1, 2048, 1152, "plane", 1, kNan, rows.data(), 16), -1);
  EXPECT_EQ(tessaline_board_head_to_mm(1, 2048, 1, 5, 5, &x, &z), -1);
  EXPECT_EQ(tessaline_board_head_to_mm(1, 2048, 1152, kNan, 5, &x, &z), -1);
  EXPECT_EQ(tessaline_board_point_to_mm(5, 5, &x, &z), -1);  // there is no board
}

TEST(Refused, NothingIsWrittenBesideTheSensor) {
  std::vector<float> rows(2100, 5);
  EXPECT_EQ(tessaline_board_head_line(1, 2048, 1152, "plane", 1, 0, rows.data(), 2099), 0);
  EXPECT_FALSE(std::isnan(rows[2047]));
  EXPECT_TRUE(std::isnan(rows[2048]));
  EXPECT_EQ(rows[2099], 5);
}

// --- The environment -----------------------------------------------------------------------

[[noreturn]] void StartWith(const char* variable, const char* value) {
  setenv("TESSALINE_BOARD", "K3610", 1);
  setenv(variable, value, 1);
  execl("/proc/self/exe", "optics_test", "--gtest_list_tests", nullptr);
  _exit(99);
}

TEST(Environment, EndsTheProgramIfItIsInvalid) {
  EXPECT_EXIT(StartWith("TESSALINE_BOARD_OPTICS", "fine"), testing::ExitedWithCode(2),
              "TESSALINE_BOARD_OPTICS: there are no optics \"fine\"; there are ideal, real and "
              "real:SEED");
  EXPECT_EXIT(StartWith("TESSALINE_BOARD_SCENE", "ball"), testing::ExitedWithCode(2),
              "TESSALINE_BOARD_SCENE: there is no scene \"ball\"; there are belt, plane, sawtooth "
              "and stairs");
  EXPECT_EXIT(StartWith("TESSALINE_BOARD_SCENE", "plane,tilt=20"), testing::ExitedWithCode(2),
              "tilt of \"tilt=20\" is not a number from -15 to 15");
}

TEST(Environment, IsTakenIfItIsValid) {
  EXPECT_EXIT(StartWith("TESSALINE_BOARD_OPTICS", "real:12345678901234567890"),
              testing::ExitedWithCode(0), "");
  EXPECT_EXIT(StartWith("TESSALINE_BOARD_SCENE", "stairs,x=-1.5,tilt=15,z=0"),
              testing::ExitedWithCode(0), "");
}

}  // namespace
