// Stairs: which of them can calibrate a head, and what is said of the others.
#include <fmt/core.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <vector>

#include "Failure.h"
#include "calibrate/Solve.h"

namespace tessaline_test {
namespace {

using namespace tool::calibrate;
using ::testing::AllOf;
using ::testing::HasSubstr;

constexpr unsigned kWidth = 1456;
constexpr unsigned kHeight = 1088;

// A head with some perspective, whose field is about 73 mm wide and 40 mm high.
tessaline_calibration Head() {
  tessaline_calibration c{};
  c.sensor_width = kWidth;
  c.sensor_height = kHeight;
  c.centre_column = kWidth / 2.0;
  c.centre_row = kHeight / 2.0;
  c.pixels_per_unit = kWidth / 2.0;
  const double plane[9] = {36.4, 0.4, 0.2, -0.3, -26.8, 10, 0.01, -0.08, 1};
  std::copy_n(plane, 9, c.plane);
  return c;
}

struct Place {
  double x, z, tilt;
};

// What the head sees of the profile h(s), from s = -50 to 50, at a place. Of two points in one
// column the upper one is seen.
template <typename Profile>
View Look(Profile height, const Place& place) {
  const tessaline_calibration head = Head();
  std::vector<double> rows(kWidth, HUGE_VAL);
  for (double s = -50; s < 50; s += 0.01) {
    const double h = height(s);
    double column = 0;
    double row = 0;
    const double x = place.x + s * std::cos(place.tilt) - h * std::sin(place.tilt);
    const double z = place.z + s * std::sin(place.tilt) + h * std::cos(place.tilt);
    if (std::isnan(h) || tessaline_point_to_pixel(&head, x, z, &column, &row) != 0) continue;
    const auto nearest = static_cast<std::size_t>(std::lround(std::max(column, 0.0)));
    if (nearest < rows.size()) rows[nearest] = std::min(rows[nearest], row);
  }
  View view{.name = "view.csv", .samples = {}};
  for (std::size_t i = 0; i < rows.size(); ++i) {
    if (std::isfinite(rows[i])) view.samples.push_back({static_cast<double>(i), rows[i]});
  }
  return view;
}

struct Steps {
  std::vector<double> edges;
  std::vector<double> heights;

  // Beside the stairs there is a floor, or nothing (NaN).
  double At(double s, double floor) const {
    for (std::size_t i = 0; i < heights.size(); ++i) {
      if (s >= edges[i] && s < edges[i + 1]) return heights[i];
    }
    return floor;
  }
};

std::string Solved(const Target& target, const Steps& steps, double floor) {
  std::vector<Sight> sights;
  for (const Place& place : std::vector<Place>{{0, 0, 0},
                                               {1, 5, 0.03},
                                               {-2, 9, -0.07},
                                               {2, 12, 0.1},
                                               {8, 2, -0.12},
                                               {-9, 8, 0.15},
                                               {5, 6, -0.05}}) {
    sights.push_back({Look([&](double s) { return steps.At(s, floor); }, place), {}, {}});
  }
  try {
    const Solution solution = Solve(kWidth, kHeight, target, std::move(sights));
    const tessaline_calibration head = Head();
    tessaline_measurement is{};
    tessaline_measurement should{};
    tessaline_point_to_mm(&solution.calibration, 900, 600, &is);
    tessaline_point_to_mm(&head, 900, 600, &should);
    const double off = std::hypot(is.x - should.x, is.z - should.z);
    return off < 0.1 ? "solved" : fmt::format("solved, {:.3f} mm off", off);
  } catch (const tool::Failure& failure) {
    return fmt::format("{}; {}", failure.what(), failure.next());
  }
}

std::string Solved(const Steps& steps, double floor = NAN) {
  try {
    return Solved(Stairs(steps.edges, steps.heights), steps, floor);
  } catch (const tool::Failure& failure) {
    return failure.what();
  }
}

const Steps kPyramid{{-25, -15, -5, 5, 15, 25}, {0, 3, 6, 3, 0}};

TEST(StairsOf, FourTreadsAreEnough) {
  EXPECT_EQ(Solved({{-25, -12, 0, 12, 25}, {0, 4, 8, 4}}), "solved");
  EXPECT_EQ(Solved({{-25, -12, 0, 12, 25}, {0, 4, 8, 0}}), "solved");
}

TEST(StairsOf, FewerTreadsAreRefused) {
  EXPECT_THAT(Solved({{-25, 0, 25}, {0, 6}}), HasSubstr("stairs have 4 to 1000 treads"));
  EXPECT_THAT(Solved({{-25, -8, 8, 25}, {0, 6, 0}}), HasSubstr("these have 3 heights and 4 edges"));
}

// Their edges are those of any stairs on the same line, seen from elsewhere.
TEST(StairsOf, EdgesOnOneLineAreRefused) {
  for (const Steps& steps :
       {Steps{{-25, -12, 0, 12, 25}, {0, 6, 0, 6}}, Steps{{-25, -12, 0, 12, 25}, {0, 6, 3, 6}},
        Steps{{-25, -15, -5, 5, 15, 25}, {0, 3, 6, 9, 12}}}) {
    EXPECT_THAT(Solved(steps), HasSubstr("lie on one line"));
  }
}

// What is beside it is seen, too.
TEST(StairsOf, ABlockOnAFloorIsExplained) {
  EXPECT_THAT(Solved(kPyramid, -6),
              AllOf(HasSubstr("the steps seen are up, up, up, down, down, down, and those of the "
                              "target up, up, down, down;"),
                    HasSubstr("what is beside the target counts, too: cover it, or describe it")));
  // A floor far below makes steps of the target look like none.
  EXPECT_THAT(Solved(kPyramid, -12), AllOf(HasSubstr("the steps seen are up, and"),
                                           HasSubstr("smaller than a third of the largest")));
  // As advised.
  EXPECT_EQ(Solved({{-60, -25, -15, -5, 5, 15, 25, 60}, {-6, 0, 3, 6, 3, 0, -6}}, -6), "solved");
}

TEST(StairsOf, ASmallStepIsRefused) {
  EXPECT_THAT(Solved({{-25, -15, -5, 5, 15, 25}, {0, 1.5, 8, 3, 0}}),
              HasSubstr("a step of 1.5 mm is smaller than a third of the largest, 6.5 mm"));
  EXPECT_EQ(Solved({{-25, -15, -5, 5, 15, 25}, {0, 3, 9, 5, 0}}), "solved");
}

}  // namespace
}  // namespace tessaline_test
