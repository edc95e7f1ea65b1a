// Millimetres: those of the scene at every region, and none that are not known.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <string>

#include "Csv.h"
#include "ToolRun.h"

namespace tessaline_test {
namespace {

using ::testing::HasSubstr;

struct Seen {
  const char* model;
  const char* region;  // x y width height; empty: without the option
  double left;         // mm, of the first column
};

std::ostream& operator<<(std::ostream& out, const Seen& seen) {
  return out << seen.model << ' ' << seen.region;
}

class Belt : public ::testing::TestWithParam<Seen> {};

// Whatever is read of the sensor, the belt has the height 0, and a column stays where it is.
TEST_P(Belt, HasTheHeightZero) {
  const Directory directory;
  const std::string file = directory / "scan.csv";
  const std::string region = GetParam().region;
  const ToolResult result = RunTool("capture strips -n 5 -o " + file + " --virtual " +
                                    GetParam().model + (region.empty() ? "" : " --roi " + region));
  ASSERT_EQ(result.status, 0) << result.err;
  const Csv csv(file);
  EXPECT_NEAR(std::ranges::min(csv.Numbers("z_mm")), 0, 0.002);
  EXPECT_NEAR(std::ranges::min(csv.Numbers("x_mm")), GetParam().left, 0.001);
}

constexpr double kWidth = 72.8;  // mm, of the full sensor

constexpr Seen kSeen[]{
    {"K3610", "", -kWidth / 2},
    {"K3610", "600 300 800 700", (600 - 728) * kWidth / 1456},
    {"K3710", "", (8 - 1032) * kWidth / 2064},
    {"K3710", "100 704 1000 800", (100 - 1032) * kWidth / 2064},
    {"K3710ch16arm_rebuild", "", (8 - 1032) * kWidth / 2064},
    {"K3810", "", -kWidth / 2},
    {"K3820", "", -kWidth / 2},
    {"K3820", "560 1000 1400 800", (560 - 2100) * kWidth / 4200},
    {"K3920", "", -kWidth / 2},
    {"K3920", "320 500 640 500", (320 - 1024) * kWidth / 2048},
    {"K4010", "", -kWidth / 2},
    {"K4010", "640 400 1280 600", (640 - 2048) * kWidth / 4096},
    {"K4010arm_rebuild", "", -kWidth / 2},
};

INSTANTIATE_TEST_SUITE_P(Regions, Belt, ::testing::ValuesIn(kSeen));

// With a calibration of the user's, whose zeros are places on the full sensor.
TEST(Calibration, HoldsForEveryRegion) {
  const Directory directory;
  const std::string file = directory / "scan.csv";
  ASSERT_EQ(RunTool("capture strips -n 1 --roi 600 300 800 700 --mm-per-column 0.1 --mm-per-row "
                    "-0.1 --column-at-zero 600 --row-at-zero 816 --virtual K3610 -o " +
                    file)
                .status,
            0);
  // The first column of the region is the zero.
  EXPECT_NEAR(Csv(file).Numbers("x_mm").front(), 0, 1e-4);
}

// Of what a product does not send, nothing is made up.
TEST(Csv, LeavesEmptyWhatIsNotKnown) {
  const Directory directory;
  const std::string file = directory / "scan.csv";
  ASSERT_EQ(RunTool("capture strips -n 1 -o " + file + " --virtual K4010arm_rebuild").status, 0);
  std::istringstream lines(FileText(file));
  std::string head;
  std::string line;
  std::getline(lines, head);
  std::getline(lines, line);
  EXPECT_EQ(std::count(head.begin(), head.end(), ','), std::count(line.begin(), line.end(), ','));
  EXPECT_THAT(line, HasSubstr(",,,"));
}

}  // namespace
}  // namespace tessaline_test
