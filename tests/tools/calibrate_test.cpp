// From captures of a target to millimetres, on heads with real optics.
#include <fmt/core.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <zlib.h>

#include <cmath>
#include <cstdio>
#include <cstring>
#include <sstream>
#include <string>
#include <vector>

#include "Csv.h"
#include "ToolRun.h"
#include "calibrate/CalibrationFile.h"

namespace tessaline_test {
namespace {

using ::testing::ContainsRegex;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::Not;

constexpr const char* kTarget = " --target sawtooth --pitch 8 --depth 4 ";

class Calibrate : public ::testing::Test {
 protected:
  // Captures the target at these places; returns the files.
  std::string Views(const std::string& board, const std::string& options = {}) const {
    std::string files;
    int number = 0;
    for (const char* place : {"", ",z=5,tilt=2,x=1", ",z=9,tilt=-4", ",z=13,tilt=6,x=2",
                              ",z=2,tilt=-8", ",z=10,tilt=9"}) {
      const std::string file = directory_ / fmt::format("view{}.csv", ++number);
      EXPECT_EQ(RunTool(fmt::format("capture strips -n 4 --exposure 120 -o {} --scene sawtooth{} "
                                    "{} {}",
                                    file, place, options, board))
                    .status,
                0);
      files += file + " ";
    }
    return files;
  }
  ToolResult Solve(const std::string& files, const std::string& model = "K3610") const {
    return RunTool("calibrate" + std::string(kTarget) + files + "-o " + head_ + " --json --model " +
                   model);
  }

  const Directory directory_;
  const std::string head_ = directory_ / "head.cal";
};

struct Head {
  const char* model;
  const char* region;  // options; shows the middle of the scene
};
std::ostream& operator<<(std::ostream& out, const Head& head) {
  return out << head.model << head.region;
}

class CalibrateSeries : public Calibrate, public ::testing::WithParamInterface<Head> {};

// Two neighbouring treads of the stairs differ by 3.000 mm. Their mean heights do so within twice
// the uncertainty that the calibration states for two single points.
TEST_P(CalibrateSeries, AStairOfThreeMillimetresIsOne) {
  const std::string board = fmt::format("--virtual {} --optics real:{}", GetParam().model, 11);
  const ToolResult solved = Solve(Views(board), GetParam().model);
  ASSERT_EQ(solved.status, 0) << solved.err;
  const auto sigma = nlohmann::json::parse(FileText(head_))["sigma"];

  const std::string scan = directory_ / "stairs.csv";
  const ToolResult result = RunTool(
      fmt::format("capture strips -n 10 --exposure 120 --scene stairs -o {} --calibration {} {} {}",
                  scan, head_, GetParam().region, board));
  ASSERT_EQ(result.status, 0) << result.err;
  EXPECT_THAT(result.out, HasSubstr("in millimetres, by the calibration of " + head_));

  // The top tread lies from x = -3 to 3 at 12 mm, the next from 3 to 9 at 9 mm.
  double top = 0, next = 0, tops = 0, nexts = 0;
  const Csv csv(scan);
  const std::vector<double> x = csv.Numbers("x_mm");
  const std::vector<double> z = csv.Numbers("z_mm");
  for (std::size_t i = 0; i < x.size(); ++i) {
    if (std::abs(x[i]) < 2.5) top += z[i], tops += 1;
    if (x[i] > 3.5 && x[i] < 8.5) next += z[i], nexts += 1;
  }
  ASSERT_GT(tops, 100);
  ASSERT_GT(nexts, 100);
  const double mm_per_row = 0.06;
  const double row_part = sigma["row_pixels"].get<double>() * mm_per_row / std::sqrt(nexts / 10);
  const double uncertainty = std::hypot(sigma["z_mm"].get<double>(), row_part);
  EXPECT_NEAR(top / tops - next / nexts, 3.000, 2 * std::sqrt(2) * uncertainty);
  EXPECT_LT(uncertainty, 0.02) << "a sensor of this kind is better";
}

INSTANTIATE_TEST_SUITE_P(
    Products, CalibrateSeries,
    ::testing::Values(Head{"K3610", ""}, Head{"K3610", "--roi 400 200 700 700"},
                      Head{"K3710", "--roi 640 240 800 1000"}, Head{"K3710ch16", ""},
                      Head{"K3710ch16arm_rebuild", "--roi 640 240 800 1000"},
                      Head{"K3810", "--roi 1680 200 1400 600"}, Head{"K3820", ""},
                      Head{"K3920", ""}, Head{"K3920", "--roi 608 200 896 900"},
                      Head{"K3920arm_rebuild", "--roi 608 200 896 900"},
                      Head{"K4010", "--roi 1536 200 1536 800"}, Head{"K4010arm_rebuild", ""}));

TEST_F(Calibrate, ReportsItsResiduals) {
  const std::string files = Views("--virtual K3610 --optics real:3");
  const ToolResult result =
      RunTool("calibrate" + std::string(kTarget) + files + "-o " + head_ + " --model K3610");
  EXPECT_EQ(result.status, 0) << result.err;
  EXPECT_THAT(result.out, HasSubstr("residuals: "));
  EXPECT_THAT(result.out, HasSubstr(" um |"));
  EXPECT_THAT(result.out, HasSubstr("uncertainty of the calibration: x "));
  EXPECT_THAT(result.out, HasSubstr("field, beyond which the uncertainty is unknown: columns "));
  EXPECT_THAT(result.out, HasSubstr("field   |─"));
  EXPECT_THAT(result.out, HasSubstr("lens (off the usual, sigmas): k1 "));
}

TEST_F(Calibrate, TellsScriptsWhatItDraws) {
  const ToolResult result = Solve(Views("--virtual K3610 --optics real:3"));
  ASSERT_EQ(result.status, 0) << result.err;
  const auto json = result.Json();
  const auto file = nlohmann::json::parse(FileText(head_));
  ASSERT_GE(json["field"].size(), 3u);
  EXPECT_EQ(json["field"], file["field"]);
  EXPECT_LT(json["field_range"]["columns"][0], 30);
  EXPECT_GT(json["field_range"]["columns"][1], 1425);
  EXPECT_LT(json["field_range"]["z_mm"][0], 1);
  EXPECT_GT(json["field_range"]["z_mm"][1], 12);
  EXPECT_EQ(json["lens"]["k1"]["solved"], file["distortion"][0]);
  EXPECT_EQ(json["views"][0]["across_um"].size(), 48u);
  EXPECT_EQ(json["views"][0]["stride"], 2);  // 1456 columns, at most 1000 points
  EXPECT_FALSE(json.contains("edges"));
}

TEST_F(Calibrate, TellsOfTheEdgesOfStairs) {
  WriteFile(directory_ / "stairs.json",
            R"({"kind": "stairs", "edges": [-27, -21, -15, -9, -3, 3, 9, 15, 21, 27],
                "heights": [0, 3, 6, 9, 12, 9, 6, 3, 0]})");
  std::string files;
  int number = 0;
  for (const char* place : {"", ",z=5,tilt=2,x=1", ",z=9,tilt=-4", ",z=2,tilt=-8"}) {
    const std::string file = directory_ / fmt::format("stairs{}.csv", ++number);
    RunTool(
        fmt::format("capture strips -n 2 --exposure 120 -o {} --scene stairs{} --virtual K3610 "
                    "--optics real:3",
                    file, place));
    files += file + " ";
  }
  const ToolResult result = RunTool("calibrate --target " + (directory_ / "stairs.json") + " " +
                                    files + "-o " + head_ + " --model K3610");
  ASSERT_EQ(result.status, 0) << result.err;
  EXPECT_THAT(result.out, ContainsRegex("[0-9]+ edges: 0\\.[0-9]+ columns"));
}

TEST_F(Calibrate, RefusesMoreViewsThanItCanSolve) {
  std::string files;
  for (int i = 0; i < 101; ++i) files += fmt::format("none{}.csv ", i);
  const ToolResult result = Solve(files);
  EXPECT_EQ(result.status, kUsage);
  EXPECT_THAT(result.err, HasSubstr("101 views are too many: at most 100"));
}

// The EEPROM of the virtual board lasts as long as its process, so the tool stores and reads in
// one.
TEST_F(Calibrate, IsStoredInTheEeprom) {
  ASSERT_EQ(Solve(Views("--virtual K3610 --optics real:3")).status, 0);
  const ToolResult stored = RunTool("calibration store " + head_ + " --virtual K3610");
  EXPECT_EQ(stored.status, 0) << stored.err;
  EXPECT_THAT(stored.out, HasSubstr("stored in the EEPROM and read back"));
}

// A head's EEPROM with this calibration, as faults of the board; one bit may be wrong.
std::string AsFaults(const std::vector<std::uint8_t>& block) {
  std::string faults;
  for (std::size_t i = 0; i < block.size(); ++i) {
    faults += fmt::format("chip eeprom {} {};", tool::calibrate::kBlockAt + i, block[i]);
  }
  return faults;
}
std::string AsFaults(const std::string& head, std::size_t changed = std::string::npos) {
  auto block = tool::calibrate::ToBlock(tool::calibrate::ReadCalibration(head));
  if (changed < block.size()) block[changed] ^= 1u;
  return AsFaults(block);
}

class CalibratedBoard : public Calibrate {
 protected:
  CalibratedBoard() { EXPECT_EQ(Solve(Views("--virtual K3610 --optics real:3")).status, 0); }
  ToolResult Capture(const std::string& faults, const std::string& options) const {
    return ToolRun("capture strips -n 1 -o " + scan_ + " --virtual K3610 --optics real:3 " +
                   options)
        .With("TESSALINE_BOARD_FAULTS", faults)
        .Run();
  }
  const std::string scan_ = directory_ / "scan.csv";
};

TEST_F(CalibratedBoard, MeasuresByItsEeprom) {
  const ToolResult result = Capture(AsFaults(head_), "");
  EXPECT_EQ(result.status, 0) << result.err;
  EXPECT_THAT(result.out, HasSubstr("in millimetres, by the calibration of the EEPROM"));
  EXPECT_THAT(FileText(scan_), HasSubstr("x_mm,z_mm"));
}

TEST_F(CalibratedBoard, IsNotOverruledSilently) {
  const ToolResult result = Capture(AsFaults(head_), "--calibration none");
  EXPECT_THAT(result.out, HasSubstr("in columns and rows, not in millimetres"));
  EXPECT_THAT(FileText(scan_), Not(HasSubstr("x_mm")));
}

TEST_F(CalibratedBoard, RefusesADamagedBlock) {
  for (const std::size_t byte : {0u, 3u, 4u, 20u, 100u, 240u}) {
    const ToolResult result = Capture(AsFaults(head_, byte), "");
    EXPECT_EQ(result.status, kNegative) << byte;
    EXPECT_THAT(result.err, HasSubstr("the calibration in the EEPROM is damaged"));
  }
}

// Of version 3, with the check sum that belongs to it.
TEST_F(CalibratedBoard, SaysThatABlockIsNewer) {
  auto block = tool::calibrate::ToBlock(tool::calibrate::ReadCalibration(head_));
  block[4] = 3;
  const std::size_t end = block[6] - sizeof(std::uint32_t);
  const auto check = static_cast<std::uint32_t>(crc32(0, block.data(), static_cast<uInt>(end)));
  std::memcpy(block.data() + end, &check, sizeof check);
  const ToolResult result = Capture(AsFaults(block), "");
  EXPECT_EQ(result.status, kNegative);
  EXPECT_THAT(result.err, HasSubstr("is of a newer version, 3"));
  EXPECT_THAT(result.err, Not(HasSubstr("damaged")));
}

// A plate of which the head's middle sees only what the target covered; the ends of a line lie
// beside.
TEST_F(CalibratedBoard, CountsPointsOutsideTheField) {
  const std::string from = "--calibration " + head_;
  const ToolResult whole = Capture("", from + " --scene plane,z=5");
  EXPECT_EQ(whole.status, 0) << whole.err;
  EXPECT_THAT(whole.out, ContainsRegex("[0-9]+ points outside the calibrated field"));
  const ToolResult json = Capture("", from + " --scene plane,z=5 --force --json");
  EXPECT_GT(json.Json()["points_outside_field"], 0);
  EXPECT_LT(json.Json()["points_outside_field"], 100);

  const ToolResult middle = Capture("", from + " --scene plane,z=5 --force --roi 400 0 656 1088");
  EXPECT_EQ(middle.status, 0) << middle.err;
  EXPECT_THAT(middle.out, Not(HasSubstr("outside")));
  const ToolResult none =
      Capture("", from + " --scene plane,z=5 --force --roi 400 0 656 1088 --json");
  EXPECT_FALSE(none.Json().contains("points_outside_field"));
}

TEST_F(CalibratedBoard, MeasuresWithACalibrationThatKnowsNoField) {
  auto json = nlohmann::json::parse(FileText(head_));
  json.erase("field");
  WriteFile(head_, json.dump());
  const ToolResult shown = RunTool("calibration show " + head_ + " --virtual K3610");
  EXPECT_THAT(shown.out, HasSubstr("field          unknown"));
  const ToolResult result = Capture("", "--calibration " + head_ + " --scene plane,z=5");
  EXPECT_EQ(result.status, 0) << result.err;
  EXPECT_THAT(result.out, Not(HasSubstr("outside")));
}

// A rehearsal reads, writes nothing, and refuses what the run would refuse.
TEST_F(CalibratedBoard, RehearsesWhatIsReplaced) {
  const auto rehearse = [&](const std::string& faults) {
    return ToolRun("calibration store " + head_ + " --dry-run --virtual K3610")
        .With("TESSALINE_BOARD_FAULTS", faults)
        .With("TESSALINE_BOARD_TRANSCRIPT", directory_ / "transcript")
        .Run();
  };
  EXPECT_THAT(rehearse("").out, HasSubstr("would replace nothing in bytes 256 to 511"));
  const std::string transcript = FileText(directory_ / "transcript");
  EXPECT_THAT(transcript, HasSubstr("w 0x51 00; r 0x51 "));
  EXPECT_THAT(transcript, Not(ContainsRegex("w 0x5[01] [0-9a-f]+ ")));
  const ToolResult same = rehearse(AsFaults(head_));
  EXPECT_THAT(same.out, HasSubstr("would replace the calibration of a K3610"));
  EXPECT_THAT(same.out, HasSubstr("0 pages"));
  EXPECT_THAT(rehearse(AsFaults(head_, 20)).out, HasSubstr("would replace a damaged calibration"));
  EXPECT_EQ(rehearse("chip eeprom 300 7").status, kExists);
}

// What is there already is not written again, and nothing of the other half is.
TEST_F(CalibratedBoard, StoresOnlyThePagesThatChange) {
  const ToolResult result = ToolRun("calibration store " + head_ + " --json --virtual K3610")
                                .With("TESSALINE_BOARD_FAULTS", AsFaults(head_, 20))
                                .With("TESSALINE_BOARD_TRANSCRIPT", directory_ / "transcript")
                                .Run();
  EXPECT_EQ(result.status, 0) << result.err;
  EXPECT_EQ(result.Json()["written_bytes"], 16);
  std::istringstream lines(FileText(directory_ / "transcript"));
  std::vector<std::string> writes;
  for (std::string line; std::getline(lines, line);) {
    if (line.find("w 0x5") != std::string::npos && line.find("; r") == std::string::npos) {
      writes.push_back(line.substr(line.find("w 0x5"), 9));
    }
  }
  EXPECT_THAT(writes, ElementsAre("w 0x51 10"));
}

TEST_F(CalibratedBoard, KeepsWhatElseIsInTheEeprom) {
  const ToolResult refused = ToolRun("calibration store " + head_ + " --virtual K3610")
                                 .With("TESSALINE_BOARD_FAULTS", "chip eeprom 300 7")
                                 .Run();
  EXPECT_EQ(refused.status, kExists);
  EXPECT_THAT(refused.err, HasSubstr("holds something else"));
  const ToolResult forced = ToolRun("calibration store --force " + head_ + " --virtual K3610")
                                .With("TESSALINE_BOARD_FAULTS", "chip eeprom 300 7")
                                .Run();
  EXPECT_EQ(forced.status, 0) << forced.err;
}

TEST_F(CalibratedBoard, IsShown) {
  const ToolResult result = ToolRun("calibration show eeprom --json --virtual K3610")
                                .With("TESSALINE_BOARD_FAULTS", AsFaults(head_))
                                .Run();
  const auto file = nlohmann::json::parse(FileText(head_));
  EXPECT_EQ(result.Json()["plane"], file["plane"]);
  EXPECT_EQ(result.Json()["field"], file["field"]);
  EXPECT_GT(result.Json()["field_range"]["x_mm"][1], 30);
}

TEST_F(CalibratedBoard, StoresNoCalibrationOfAnotherSensor) {
  const ToolResult result = RunTool("calibration store " + head_ + " --virtual K4010");
  EXPECT_EQ(result.status, kUsage);
  EXPECT_THAT(result.err, HasSubstr("that of a sensor of 1456 x 1088"));
}

TEST_F(CalibratedBoard, RefusesTheCalibrationOfAnotherSensor) {
  const ToolResult result =
      RunTool("capture strips -n 1 -o " + scan_ + " --virtual K4010 --calibration " + head_);
  EXPECT_EQ(result.status, kUsage);
  EXPECT_THAT(result.err, HasSubstr("that of a sensor of 1456 x 1088"));
}

TEST_F(CalibratedBoard, SaysThatRealOpticsHaveNone) {
  const ToolResult result = Capture("", "");
  EXPECT_THAT(result.out, HasSubstr("in columns and rows, not in millimetres"));
}

// What is no calibration is refused in one line.
TEST(Calibration, BadFiles) {
  const Directory directory;
  const std::string file = directory / "bad.cal";
  const auto error_of = [&](const std::string& text) {
    WriteFile(file, text);
    const ToolResult result = RunTool("calibration show " + file + " --virtual K3610");
    EXPECT_EQ(result.status, kUsage) << text;
    EXPECT_EQ(CountLines(result.err), 1) << result.err;
    return result.err;
  };
  EXPECT_THAT(error_of(""), HasSubstr("this is no calibration"));
  EXPECT_THAT(error_of("[1, 2]"), HasSubstr("this is no calibration"));
  EXPECT_THAT(error_of("{\"calibration\": 2}"), HasSubstr("version 1"));
  EXPECT_THAT(error_of("{\"calibration\": 1}"), HasSubstr("this is no calibration"));
  EXPECT_THAT(error_of(std::string(60'000, '[')), HasSubstr("this is no calibration"));
  WriteFile(file, std::string(100'000, '['));
  const ToolResult large = RunTool("calibration show " + file + " --virtual K3610");
  EXPECT_EQ(large.status, kFile);
  EXPECT_THAT(large.err, HasSubstr("File too large"));
  const ToolResult missing = RunTool("calibration show /no/such.cal --virtual K3610");
  EXPECT_EQ(missing.status, kFile);
  EXPECT_EQ(RunTool("calibration show /tmp --virtual K3610").status, kFile);
}

// What cannot be solved is refused, and no file is written.
TEST_F(Calibrate, Refuses) {
  struct Case {
    const char* arguments;
    const char* reason;
  };
  const std::string good = Views("--virtual K3610 --optics real:3");
  WriteFile(directory_ / "no.csv", "a,b\n1,2\n");
  WriteFile(directory_ / "bad.csv", "frame_id,time_stamp,encoder_stamp,column,row\n1,2,3,4,nan\n");
  WriteFile(directory_ / "far.csv", "frame_id,time_stamp,encoder_stamp,column,row\n1,2,3,4000,5\n");
  const std::string second = FileText(directory_ / "view2.csv");
  WriteFile(directory_ / "moved.csv",
            FileText(directory_ / "view1.csv") + second.substr(second.find('\n') + 1));
  WriteFile(directory_ / "target.json", "{\"kind\": \"stairs\", \"edges\": [0, 1]}");
  const Case kCases[]{
      {"--target sawtooth view1.csv view2.csv view3.csv", "give --pitch and --depth"},
      {"--target sawtooth --pitch 0 --depth 4 view1.csv", "--pitch"},
      {"--target plane view1.csv view2.csv view3.csv", "height and tilt are known"},
      {"--target plane --at 1 view1.csv view2.csv view3.csv", "3 files, but 1 place"},
      {"--target plane --at 1,x --at 2 --at 3 view1.csv view2.csv view3.csv", "this is no place"},
      {"--target sawtooth --pitch 8 --depth 4 view1.csv view2.csv", "2 views are too few"},
      {"--target sawtooth --pitch 8 --depth 4 view1.csv view1.csv view1.csv", "is given twice"},
      {"--target sawtooth --pitch 8 --depth 5 view1.csv view2.csv view3.csv view4.csv", "explain"},
      {"--target sawtooth --pitch 10 --depth 4 view1.csv view2.csv view3.csv view4.csv", "explain"},
      {"--target sawtooth --pitch 8 --depth 4 --at 1 --at 2 --at 3 view1.csv view2.csv view3.csv",
       "tells its place itself"},
      {"--target sawtooth --pitch 8 --depth 4 /dev/zero view1.csv view2.csv", "/dev/zero"},
      {"--target sawtooth --pitch 8 --depth 4 moved.csv view3.csv view4.csv", "at rest"},
      {"--target /dev/zero view1.csv view2.csv view3.csv", "File too large"},
      {"--target sawtooth --pitch 8 --depth 4 no.csv view1.csv view2.csv", "does not name"},
      {"--target sawtooth --pitch 8 --depth 4 bad.csv view1.csv view2.csv",
       "line 2 is not a point"},
      {"--target sawtooth --pitch 8 --depth 4 far.csv view1.csv view2.csv", "line 2 is not on"},
      {"--target sawtooth --pitch 8 --depth 4 none.csv view1.csv view2.csv",
       "cannot read none.csv"},
      {"--target target.json view1.csv view2.csv view3.csv", "target.json"},
      {"--target none.json view1.csv view2.csv view3.csv", "cannot read none.json"},
  };
  for (const Case& one : kCases) {
    const ToolResult result =
        ToolRun(std::string("calibrate -o head.cal --model K3610 ") + one.arguments)
            .In(directory_.path())
            .Run();
    EXPECT_NE(result.status, 0) << one.arguments;
    EXPECT_THAT(result.err, HasSubstr(one.reason));
    EXPECT_FALSE(std::filesystem::exists(head_)) << one.arguments;
  }
}

}  // namespace
}  // namespace tessaline_test
