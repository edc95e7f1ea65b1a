// What files and the live view say in millimetres, and how sure they are of it.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <string>

#include "Csv.h"
#include "ToolRun.h"
#include "calibrate/CalibrationFile.h"

namespace tessaline_test {
namespace {

using ::testing::AllOf;
using ::testing::Each;
using ::testing::HasSubstr;
using ::testing::Not;

constexpr unsigned kWidth = 1456;
constexpr unsigned kHeight = 1088;
constexpr double kMmPerColumn = 0.05;
constexpr double kMmPerRow = 0.04;
// 3-4-5: a quarter of a column and the calibration's own part, in mm.
constexpr double kSigmaX = 0.0125 * 5 / 3;
constexpr double kSigmaZ = 0.02 * 5 / 4;

// A head without perspective and distortion: z is 0 in the row 816, where its belt is.
class MeasuredHead : public ::testing::Test {
 protected:
  MeasuredHead() {
    tool::calibrate::StoredCalibration stored{{}, "K3610"};
    tessaline_calibration& c = stored.numbers;
    c.sensor_width = kWidth;
    c.sensor_height = kHeight;
    c.centre_column = kWidth / 2.0;
    c.centre_row = kHeight / 2.0;
    c.pixels_per_unit = kWidth / 2.0;
    c.plane[0] = kMmPerColumn * c.pixels_per_unit;
    c.plane[4] = -kMmPerRow * c.pixels_per_unit;
    c.plane[5] = kMmPerRow * (816 - c.centre_row);
    c.plane[8] = 1;
    c.column_sigma = 0.25;
    c.row_sigma = 0.5;
    c.x_sigma = 0.0125 * 4 / 3;
    c.z_sigma = 0.02 * 3 / 4;
    WriteFile(head_, tool::calibrate::ToJson(stored).dump());
  }
  ToolResult Run(const std::string& arguments) const {
    return RunTool(arguments + " --virtual K3610");
  }
  std::string Captured(const std::string& name, const std::string& options) const {
    const std::string file = directory_ / name;
    const ToolResult result = Run("capture strips -n 3 -o " + file + " " + options);
    EXPECT_EQ(result.status, kOk) << result.err;
    return file;
  }

  const Directory directory_;
  const std::string head_ = directory_ / "head.cal";
  const std::string by_head_ = "--calibration " + head_;
};

TEST_F(MeasuredHead, StatesTheUncertaintyInCsv) {
  const Csv csv(Captured("scan.csv", by_head_ + " --roi 600 300 800 700"));
  EXPECT_THAT(csv.Numbers("sigma_x_mm"), Each(::testing::DoubleNear(kSigmaX, 1e-5)));
  EXPECT_THAT(csv.Numbers("sigma_z_mm"), Each(::testing::DoubleNear(kSigmaZ, 1e-5)));
  EXPECT_NEAR(csv.Numbers("x_mm").front(), (600 - kWidth / 2.0) * kMmPerColumn, 1e-4);
}

// Ideal optics are exact, and what is typed in says nothing of itself: neither is "0".
TEST_F(MeasuredHead, LeavesEmptyWhatNobodyKnows) {
  for (const char* options : {"", "--mm-per-column 0.05 --mm-per-row 0.04 --force"}) {
    const Csv csv(Captured("scan.csv", options));
    EXPECT_THAT(csv.Texts("sigma_x_mm"), Each(""));
    EXPECT_THAT(csv.Texts("sigma_z_mm"), Each(""));
    EXPECT_THAT(csv.Texts("x_mm"), Each(Not("")));
  }
}

TEST_F(MeasuredHead, StatesNothingInMillimetresWithoutACalibration) {
  const auto head = [&](const std::string& name) {
    return FileText(Captured(name, "--calibration none")).substr(0, 480);
  };
  EXPECT_THAT(head("scan.csv"), AllOf(HasSubstr("row,peak,line_width,sensor\n"),
                                      HasSubstr(",1456x1088\n"), Not(HasSubstr("mm"))));
  EXPECT_THAT(head("scan.ply"), Not(HasSubstr("sigma")));
  EXPECT_THAT(head("scan.npy"), AllOf(HasSubstr("'row'"), Not(HasSubstr("sigma"))));
}

template <typename Number>
Number At(const std::string& bytes, std::size_t offset) {
  Number number{};
  if (offset + sizeof number <= bytes.size()) std::memcpy(&number, &bytes[offset], sizeof number);
  return number;
}

TEST_F(MeasuredHead, StatesTheUncertaintyInPointClouds) {
  const auto sigmas_of = [&](const std::string& options) {
    const std::string ply = FileText(Captured("scan.ply", options + " --force"));
    EXPECT_THAT(ply, HasSubstr("property uchar intensity\nproperty float sigma_x\n"
                               "property float sigma_z\ncomment"));
    const std::size_t point = ply.find("end_header\n") + 11;
    return std::pair(At<float>(ply, point + 13), At<float>(ply, point + 17));
  };
  const auto known = sigmas_of(by_head_);
  EXPECT_NEAR(known.first, kSigmaX, 1e-5);
  EXPECT_NEAR(known.second, kSigmaZ, 1e-5);
  EXPECT_TRUE(std::isnan(sigmas_of("").first));
  EXPECT_TRUE(std::isnan(sigmas_of("").second));
}

// Fields follow each other in the order of the head.
TEST_F(MeasuredHead, IsMeasuredInArrays) {
  const std::string npy = FileText(Captured("scan.npy", by_head_));
  EXPECT_THAT(npy, HasSubstr("('peak', '|u1', (1456,)), ('x', '<f4', (1456,)), ('z', '<f4', "
                             "(1456,)), ('sigma_x', '<f4', (1456,)), ('sigma_z', '<f4', (1456,))"));
  const std::size_t rows = 10u + At<std::uint16_t>(npy, 8) + 24;
  const std::size_t x = rows + kWidth * 5;
  constexpr std::size_t kField = kWidth * sizeof(float);
  constexpr std::size_t kColumn = 100;
  const auto value = [&](std::size_t field) {
    return At<float>(npy, field + kColumn * sizeof(float));
  };
  EXPECT_NEAR(value(x), (kColumn - kWidth / 2.0) * kMmPerColumn, 1e-4);
  EXPECT_NEAR(value(x + kField), (816 - value(rows)) * kMmPerRow, 1e-4);
  EXPECT_NEAR(value(x + 2 * kField), kSigmaX, 1e-5);
  EXPECT_NEAR(value(x + 3 * kField), kSigmaZ, 1e-5);
}

TEST_F(MeasuredHead, HasArraysThatSaySo) {
  const std::string file = directory_ / "scan.npy";
  const ToolResult result = Run("capture strips -n 1 -o " + file + " --json " + by_head_);
  EXPECT_EQ(result.Json()["unit"], "mm");
  EXPECT_EQ(result.Json()["calibration"], head_);
}

// --- The live view -------------------------------------------------------------------------

nlohmann::json LastLine(const ToolResult& result) {
  const std::size_t end = result.out.rfind('\n');
  const std::size_t begin = result.out.rfind('\n', end - 1);
  return nlohmann::json::parse(result.out.substr(begin + 1, end - begin), nullptr, false);
}

TEST_F(MeasuredHead, IsWatchedInMillimetres) {
  const std::string watch = "watch --time 0.3 --interval 0.1 --scene plane,z=0 ";
  const ToolResult lines = Run(watch + by_head_);
  EXPECT_THAT(lines.out, AllOf(HasSubstr("in millimetres, by the calibration of " + head_),
                               HasSubstr("x -36.400 to 36.350 mm, z 0.000 to 0.000 mm")));
  const auto json = LastLine(Run(watch + by_head_ + " --roi 600 300 800 700 --json"));
  EXPECT_EQ(json["unit"], "mm");
  EXPECT_EQ(json["calibration"], head_);
  EXPECT_NEAR(json["x"][0].get<double>(), (600 - kWidth / 2.0) * kMmPerColumn, 1e-3);
  EXPECT_NEAR(json["z"][1].get<double>(), 0, 1e-3);
  EXPECT_FALSE(json.contains("rows"));
}

TEST_F(MeasuredHead, IsWatchedInRowsWithoutACalibration) {
  const std::string watch = "watch --time 0.3 --interval 0.1 --scene plane,z=0 --calibration none ";
  EXPECT_THAT(Run(watch).out, AllOf(HasSubstr("in columns and rows, not in millimetres"),
                                    HasSubstr("columns 0 to 1455, rows 816.0 to 816.0")));
  // Of the full sensor, wherever the region is.
  const auto json = LastLine(Run(watch + "--roi 600 300 800 700 --json"));
  EXPECT_EQ(json["unit"], "pixels");
  EXPECT_TRUE(json["calibration"].is_null());
  EXPECT_EQ(json["columns"], (nlohmann::json{600, 1399}));
  EXPECT_NEAR(json["rows"][0].get<double>(), 816, 0.01);
  EXPECT_FALSE(json.contains("z"));
}

TEST_F(MeasuredHead, IsNotWatchedWithAnotherOnesCalibration) {
  const ToolResult result = RunTool("watch --time 0.3 --virtual K4010 " + by_head_);
  EXPECT_EQ(result.status, kUsage);
  EXPECT_THAT(result.err, HasSubstr("that of a sensor of 1456 x 1088"));
}

// --- Rehearsals and what does nothing ------------------------------------------------------

TEST_F(MeasuredHead, RehearsesTheReadingOfTheEeprom) {
  const auto first_call = [&](const std::string& arguments) {
    return Run(arguments + " --dry-run --json").Json()["calls"][0].get<std::string>();
  };
  EXPECT_EQ(first_call("capture strips -n 1 -o x.ply"), "ConfigRead(512)");
  EXPECT_EQ(first_call("capture strips -n 1 -o x.npy --calibration eeprom"), "ConfigRead(512)");
  EXPECT_EQ(first_call("watch"), "ConfigRead(512)");
  for (const std::string arguments :
       {"capture strips -n 1 -o x.csv --calibration none", "capture strips -n 1 -o x.raw",
        "capture images -n 1 -o x.png", "watch --mm-per-column 0.05 --mm-per-row 0.04"}) {
    EXPECT_EQ(first_call(arguments), "RegisterHardwareInit()") << arguments;
  }
  EXPECT_EQ(first_call("watch " + by_head_), "RegisterHardwareInit()");
}

// A few rows are read within 18 us, and an encoder count takes 200 us: most pairs of profiles lie
// within one.
TEST_F(MeasuredHead, TellsOfAnEncoderThatStandsStill) {
  const std::string capture =
      "capture strips --json --force --exposure 50 --power 100 --scene plane,z=0 "
      "--roi 320 862 640 4 --virtual K3920 -o " +
      (directory_ / "scan.ply");
  std::string warning;
  for (int i = 0; i < 10 && warning.empty(); ++i) {
    warning = RunTool(capture + " -n 2 --spacing 2").Json().value("warning", "");
  }
  EXPECT_THAT(warning, HasSubstr("the encoder has not moved"));
  const auto moved = RunTool(capture + " -n 2 --spacing 4000").Json();
  EXPECT_EQ(moved.value("warning", ""), "");
}

TEST_F(MeasuredHead, TellsOfASpacingThatDoesNotCount) {
  const std::string recipe = directory_ / "timer.json";
  ASSERT_EQ(RunTool("recipe save " + recipe + " --spacing 300").status, kOk);
  const std::string watch = "watch --time 0.2 --recipe " + recipe;
  EXPECT_THAT(Run(watch + " --trigger encoder").err, HasSubstr("does not count: it is in us"));
  EXPECT_EQ(Run(watch).err, "");
}

}  // namespace
}  // namespace tessaline_test
