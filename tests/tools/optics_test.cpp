// Optics and scene of the virtual board, chosen on the command line.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <sstream>
#include <string>
#include <vector>

#include "ToolRun.h"

namespace tessaline_test {
namespace {

class Optics : public ::testing::Test {
 protected:
  // A run that captures one profile.
  ToolRun Capture(const std::string& options) const {
    return ToolRun("capture strips -n 1 --force -o " + file_ + " " + options);
  }

  // The rows that the run has written.
  std::vector<double> RowsOf(const ToolRun& run) const {
    const ToolResult result = run.Run();
    EXPECT_EQ(result.status, kOk) << result.err;
    std::istringstream lines(FileText(file_));
    std::vector<double> rows;
    std::string line;
    std::getline(lines, line);
    while (std::getline(lines, line)) {
      std::size_t at = 0;
      for (int comma = 0; comma < 4; ++comma) at = line.find(',', at) + 1;
      rows.push_back(std::stod(line.substr(at)));
    }
    return rows;
  }

 private:
  Directory directory_;
  const std::string file_ = directory_ / "scan.csv";
};

// The ideal row of z = 10 mm is the middle.
void ExpectMiddle(const std::vector<double>& rows) {
  ASSERT_EQ(rows.size(), 1456u);
  for (const double row : rows) ASSERT_NEAR(row, 544, 0.01);
}

TEST_F(Optics, TheSceneIsThatOfTheOption) {
  ExpectMiddle(RowsOf(Capture("--virtual K3610 --scene plane,z=10")));
}

TEST_F(Optics, TheOptionCountsMoreThanTheEnvironment) {
  ExpectMiddle(RowsOf(Capture("--virtual K3610 --scene plane,z=10 --optics ideal")
                          .With("TESSALINE_BOARD_SCENE", "stairs")
                          .With("TESSALINE_BOARD_OPTICS", "real")));
}

TEST_F(Optics, ABoardOfTheEnvironmentTakesThemToo) {
  ExpectMiddle(RowsOf(Capture("--scene plane,z=10").With("TESSALINE_BOARD", "K3610")));
  // The same with the board loaded already.
  ExpectMiddle(RowsOf(Capture("--scene plane,z=10").Program(TESSALINE_TOOL, "K3610")));
}

TEST_F(Optics, RealOnesDifferFromSeedToSeed) {
  const std::string scene = "--virtual K3610 --scene plane,z=10 --optics real";
  const std::vector<double> one = RowsOf(Capture(scene));
  EXPECT_GT(one.size(), 1400u);
  EXPECT_LT(one.size(), 1456u);  // some are missing
  EXPECT_EQ(RowsOf(Capture(scene + ":1")), one);
  EXPECT_GT(std::abs(RowsOf(Capture(scene + ":2")).front() - one.front()), 1);
}

}  // namespace
}  // namespace tessaline_test
