// What every sub-command has in common: JSON, rehearsals, errors and exit statuses.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "ToolRun.h"

namespace tessaline_test {
namespace {

using ::testing::AllOf;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::StartsWith;

// --- Results -------------------------------------------------------------------------------

class JsonOf : public ::testing::TestWithParam<const char*> {};

// Start-up and settings make the library print; none of it may get between.
TEST_P(JsonOf, IsAllThatIsPrinted) {
  const ToolResult result = RunTool(std::string(GetParam()) + " --json --virtual K3610");
  EXPECT_EQ(result.status, 0) << result.err;
  EXPECT_FALSE(result.Json().is_discarded()) << result.out;
  EXPECT_EQ(result.err, "");
}

INSTANTIATE_TEST_SUITE_P(
    Commands, JsonOf,
    ::testing::Values("models", "info", "info --start", "reg list TRI",
                      "reg read TRIGGER_CTRL --start", "reg write EXP_TIME_1 200", "reg dump",
                      "laser status", "laser on", "laser off", "led cyan", "power 30", "exposure",
                      "exposure 100 200 --gain 6", "roi", "roi 128 256 1000 700", "trigger",
                      "trigger --mode encoder --spacing 7", "eeprom dump", "sensor tables"));

TEST(Models, ListsEveryProductWithItsSensor) {
  const auto models = RunTool("models --json").Json();
  ASSERT_EQ(models.size(), 36u);
  EXPECT_EQ(models[0]["model"], "K3610");
  EXPECT_EQ(models[0]["sensor"], "IMX273");
  const auto one = RunTool("models K4010arm_rebuild --json").Json()[0];
  EXPECT_EQ(one["series"], 25);
  EXPECT_EQ(one["strip_buffer_bytes"], 8192 * 2048);
  EXPECT_EQ(one["bytes_per_point"], 2);
  EXPECT_EQ(one["sensor_bus"], "/dev/spidev0.0");
}

TEST(Version, IsTold) {
  const ToolResult result = RunTool("--version");
  EXPECT_EQ(result.status, 0);
  EXPECT_THAT(result.out, StartsWith("tessaline 1."));
}

TEST(Info, ShowsWhatTheBoardSays) {
  const auto info = RunTool("info --virtual K3920 --start --json").Json();
  EXPECT_EQ(info["interface_version"], 41915);
  EXPECT_EQ(info["fpga"]["series"], 24);
  EXPECT_NEAR(info["processor_temperature"].get<double>(), 40, 1);
  EXPECT_EQ(info["sensor_thermometer_answers"], true);
  EXPECT_TRUE(info["board_temperature_18b20"].is_null());
  EXPECT_GT(info["counters"]["timer"].get<long>(), 0);
  EXPECT_EQ(info["counters"]["triggers_lost"], 0);
  EXPECT_EQ(info["counters"]["callbacks_lost"], 0);
}

TEST(Info, TellsTemperaturesAndWhatIsNotAvailable) {
  struct Case {
    const char* arguments;
    const char* faults;
    std::vector<const char*> told;
  };
  const Case cases[]{
      {"--virtual K3610", "", {"sensor temperature      not asked", "processor temperature   40."}},
      {"--start --virtual K3610", "", {"sensor temperature      answers"}},
      {"--start --virtual K4010", "", {"sensor temperature      not available"}},
      {"--start --virtual K3610",
       "call iio read EIO",
       {"processor temperature   not available", "18b20 temperature       not available"}}};
  for (const Case& one : cases) {
    const std::string out = ToolRun("info " + std::string(one.arguments))
                                .With("TESSALINE_BOARD_FAULTS", one.faults)
                                .Run()
                                .out;
    for (const char* line : one.told) EXPECT_THAT(out, HasSubstr(line)) << one.arguments;
  }
}

// The K37's start triggers images to see that the sensor sends any.
// The sensor's test of itself waits 100 ms for each of its images, which on a busy
// machine may all come later.
ToolResult RunUntilAnImageCame(const std::string& arguments, const std::string& proof) {
  ToolResult result = RunTool(arguments);
  for (int i = 0; i < 20 && result.out.find(proof) == std::string::npos; ++i) {
    result = RunTool(arguments);
  }
  return result;
}

TEST(Info, ShowsWhatThisProcessHasCaptured) {
  const std::string images = "\nimages captured         dequeued ";
  const ToolResult text = RunUntilAnImageCame("info --start --virtual K3710", images);
  EXPECT_THAT(text.out, HasSubstr(images));
  EXPECT_THAT(text.out, HasSubstr("\nstrips captured         none by this process\n"));
  const auto captured =
      RunUntilAnImageCame("info --start --json --virtual K3710", "dequeued").Json()["captured"];
  EXPECT_GE(captured["images"]["dequeued"].get<long>(), 1);
  EXPECT_EQ(captured["images"]["ids_missing"], 0);
  EXPECT_TRUE(captured["strips"].is_null());
  const auto looked = RunTool("info --json --virtual K3710").Json()["captured"];
  EXPECT_TRUE(looked["images"].is_null());
}

TEST(SensorTables, AreThoseOfTheGuide) {
  const std::string guide = FileText(TESSALINE_SOURCE "/docs/sensor-tables.md");
  const auto tables = RunTool("sensor tables --json").Json();
  ASSERT_FALSE(tables.empty());
  for (const auto& table : tables) {
    EXPECT_THAT(guide, HasSubstr("| `" + table["header"].get<std::string>() + "` | `" +
                                 table["table"].get<std::string>() + "` |"));
  }
}

TEST(Verbose, ShowsTheLibrarysTextsOnTheErrorStream) {
  const ToolResult result = RunTool("led green --virtual K3610 -v --json");
  EXPECT_THAT(result.err, HasSubstr("library: 273 init successful"));
  EXPECT_FALSE(result.Json().is_discarded());
}

TEST(Board, IsTakenFromTheEnvironment) {
  const ToolResult result = ToolRun("info --json").With("TESSALINE_BOARD", "K4010").Run();
  EXPECT_EQ(result.Json()["fpga"]["series"], 25) << result.err;
}

// --- Rehearsals ----------------------------------------------------------------------------

class DryRun : public ::testing::TestWithParam<const char*> {};

TEST_P(DryRun, SaysSoAndWritesNothing) {
  const Directory directory;
  const std::string transcript = directory / "transcript.txt";
  WriteFile(directory / "content.bin", "abc");
  std::string arguments = GetParam();
  if (const auto at = arguments.find('@'); at != std::string::npos) {
    arguments.replace(at, 1, directory.path());
  }
  const ToolResult result = ToolRun(arguments + " --dry-run --virtual K3610")
                                .With("TESSALINE_BOARD_TRANSCRIPT", transcript)
                                .Run();
  EXPECT_EQ(result.status, 0) << result.err;
  EXPECT_THAT(result.out, HasSubstr("--dry-run"));
  EXPECT_THAT(FileText(transcript), Not(HasSubstr("write")));
  EXPECT_THAT(FileText(transcript), Not(HasSubstr("I2C_RDWR")));
}

INSTANTIATE_TEST_SUITE_P(Commands, DryRun,
                         ::testing::Values("laser on", "led red", "power 10", "exposure 5",
                                           "roi --full", "trigger --mode timer", "check", "watch",
                                           "capture strips -n 1 -o @/x.csv", "info --start",
                                           "reg read EXP_TIME_1 --start", "reg dump --start",
                                           "reg write EXP_TIME_1 7",
                                           "reg write TRIGGER_CTRL.mode 1",
                                           "eeprom load @/content.bin"));

TEST(DryRunOfACapture, ListsTheCallsInTheirOrder) {
  const auto calls =
      RunTool("capture strips -n 1 -o x.csv --exposure 150 --dry-run --json --virtual K3610")
          .Json()["calls"]
          .get<std::vector<std::string>>();
  EXPECT_THAT(calls, ElementsAre("ConfigRead(512)", "RegisterHardwareInit()", "SetGlobalControl(0)",
                                 "SetExposureNum(1)", "SetExposureTime(1, 150)",
                                 "SetLaserPower(50)", "SetTriMode(0)", "SetTriSpacing(4000)",
                                 "SetCollectMode(0)", "ResetFrameID()", "ResetCallbackLostNum()",
                                 "TriggerLostReset()", "OpenLaser()", "SetGlobalControl(1)",
                                 "CloseLaser()", "SetGlobalControl(0)"));
}

// It starts with half of its rows.
TEST(DryRunOfACapture, ListsTheRegionThatTheRunSets) {
  EXPECT_THAT(RunTool("capture strips -n 1 -o x.csv --dry-run --virtual K3820").out,
              HasSubstr("  SetROI1(0, 0, 4200, 2048)\n"));
  EXPECT_THAT(RunTool("watch --roi 28 0 560 512 --dry-run --virtual K3820").out,
              HasSubstr("  SetROI1(28, 0, 560, 512)\n"));
}

TEST(Setting, ReachesTheBoard) {
  const Directory directory;
  const std::string transcript = directory / "transcript.txt";
  const ToolResult result = ToolRun("trigger --mode encoder --spacing 7 --virtual K3610")
                                .With("TESSALINE_BOARD_TRANSCRIPT", transcript)
                                .Run();
  EXPECT_EQ(result.status, 0) << result.err;
  EXPECT_THAT(FileText(transcript), HasSubstr("write IMAGE_BLOCK_1 TRI_SPACING = 0x00000007"));
}

TEST(Laser, GoesOnOnlyWhenAsked) {
  const Directory directory;
  const std::string transcript = directory / "transcript.txt";
  const auto lines = [&](const std::string& arguments) {
    ToolRun(arguments + " --virtual K3610").With("TESSALINE_BOARD_TRANSCRIPT", transcript).Run();
    return FileText(transcript);
  };
  EXPECT_THAT(lines("laser on"), HasSubstr("gpio write gpio907/value 1"));
  const std::string timed = lines("laser on --seconds 0.1");
  ASSERT_THAT(timed, HasSubstr("gpio write gpio907/value 0"));
  EXPECT_GT(timed.rfind("gpio907/value 0"), timed.find("gpio907/value 1"));
  EXPECT_THAT(lines("check"), Not(HasSubstr("gpio907/value 1")));
}

// --- Errors --------------------------------------------------------------------------------

struct Mistake {
  const char* name;
  const char* arguments;
  int status;
  const char* says;  // and what next
};

std::ostream& operator<<(std::ostream& out, const Mistake& mistake) { return out << mistake.name; }

class Mistaken : public ::testing::TestWithParam<Mistake> {};

TEST_P(Mistaken, IsToldInOneLine) {
  const Mistake& mistake = GetParam();
  const ToolResult result = RunTool(mistake.arguments);
  EXPECT_EQ(result.status, mistake.status);
  EXPECT_EQ(result.out, "");
  EXPECT_EQ(CountLines(result.err), 1) << result.err;
  EXPECT_THAT(result.err, AllOf(StartsWith("tessaline"), HasSubstr(mistake.says)));
}

constexpr Mistake kMistakes[]{
    {"NoCommand", "", kUsage, "tessaline --help"},
    {"UnknownCommand", "frobnicate", kUsage, "--help"},
    {"UnknownOption", "info --frob", kUsage, "see \"tessaline info --help\""},
    {"NoModel", "info", kUsage, "--model CODE"},
    {"UnknownModel", "info --model X1", kUsage, "\"tessaline models\" lists"},
    {"UnknownBoard", "info --virtual X1", kUsage, "\"tessaline models\" lists"},
    {"UnknownModelListed", "models X1", kUsage, "unknown model \"X1\""},
    {"MistypedVariant", "info --virtual K3920arm_rebuidl", kUsage,
     "the nearest is K3920arm_rebuild;"},
    {"MistypedModel", "info --model K36foo", kUsage, "the nearest is K36"},
    {"MistypedNumber", "models K3999", kUsage, "the nearest is K39"},
    {"MistypedCase", "info --virtual k3820", kUsage, "the nearest is K3820;"},
    {"NoBoard", "info --model K3610", kUnreachable, "--virtual K3610"},
    {"NoEeprom", "eeprom dump", kUnreachable, "--virtual K3610"},
    {"OutsideTheMap", "reg read 0x43C1FFF0 --virtual K3610", kUsage, "reg list"},
    {"NoSuchRegister", "reg read NONSENSE --virtual K3610", kUsage, "reg list"},
    {"NearlyARegister", "reg read SPACING --virtual K3610", kUsage, "did you mean TRI_SPACING"},
    {"NoSuchField", "reg read TRIGGER_CTRL.x --virtual K3610", kUsage, "its fields are mode"},
    {"TwoRegisters", "reg read STREAM_SWITCH_CTRL --virtual K3610", kUsage, "IMAGE_BLOCK_4."},
    {"TooLargeForTheField", "reg write TRIGGER_CTRL.mode 4 --virtual K3610", kUsage, "at most 3"},
    {"NoNumber", "reg write EXP_TIME_1 many --virtual K3610", kUsage, "not a 32-bit number"},
    {"TooMuchPower", "power 101 --virtual K3610", kUsage, "range"},
    {"RegionOfThreeNumbers", "roi 1 2 3 --virtual K3610", kUsage, "four numbers"},
    {"RegionOutside", "roi 1 0 1456 1088 --virtual K3610", kUsage, "lies within 1456 x 1088"},
    {"RegionOfNothing", "capture strips -n 1 -o /tmp/x.csv --roi 0 0 0 0 --virtual K3610", kUsage,
     "no region of 0 x 0 at column 0, row 0"},
    {"RegionAcross", "roi 4294967295 0 2 1088 --virtual K3610", kUsage, "lies within"},
    {"RegionOffSteps", "roi 10 0 560 512 --virtual K3820", kUsage,
     "in steps of 28, width from 560"},
    {"RegionTooNarrow", "watch --roi 0 0 28 512 --virtual K3820", kUsage, "width from 560"},
    {"RegionTooHigh", "roi 0 0 4200 2048 --virtual K3810", kUsage, "lies within 4200 x 1024"},
    {"RegionOffRows", "roi 0 4 64 8 --virtual K4010", kUsage, "y in steps of 8"},
    {"TooMuchGain", "capture strips -n 1 -o /tmp/x.csv --gain 999 --virtual K3610", kUsage,
     "its gain is 0 to 48 decibels"},
    {"NoGainOfZero", "exposure --gain 0 --virtual K3820", kUsage, "its gain is 1 to 5"},
    {"ScaleIsNoNumber", "capture strips -n 1 -o /tmp/x.csv --mm-per-row nan --virtual K3610",
     kUsage, "nan is not a number of millimetres"},
    {"ScaleIsZero", "capture strips -n 1 -o /tmp/x.csv --mm-per-column 0 --virtual K3610", kUsage,
     "0 is not a number of millimetres"},
    {"HalfACalibration", "capture strips -n 1 -o /tmp/x.csv --mm-per-row 0.1 --virtual K3610",
     kUsage, "give --mm-per-column and --mm-per-row"},
    {"CloudWithoutTravel",
     "capture strips -n 1 -o /tmp/x.ply --mm-per-row 0.1 --mm-per-column 0.1 --virtual K3610",
     kUsage, "--counts-per-mm"},
    {"CalibrationOfRawBytes",
     "capture strips -n 1 -o /tmp/x.raw --calibration eeprom --virtual K3610", kUsage,
     "--calibration does nothing here"},
    {"CalibrationOfImages",
     "capture images -n 1 -o /tmp/x.png --mm-per-row 0.1 --mm-per-column 0.1 --virtual K3610",
     kUsage, "--mm-per-column does nothing here"},
    {"TravelOfImages", "capture images -n 1 -o /tmp/x.png --counts-per-mm 10 --virtual K3610",
     kUsage, "--counts-per-mm does nothing here"},
    {"TravelOfPoints", "capture strips -n 1 -o /tmp/x.csv --counts-per-mm 10 --virtual K3610",
     kUsage, "it is for ply and png"},
    {"TravelWithoutCalibration",
     "capture strips -n 1 -o /tmp/x.ply --counts-per-mm 10 --calibration none --virtual K3610",
     kUsage, "without a calibration"},
    {"WatchByHalfACalibration", "watch --mm-per-row 0.1 --virtual K3610", kUsage,
     "give --mm-per-column and --mm-per-row"},
    {"PitchOfAPlane", "calibrate --target plane --pitch 8 a.csv -o a.cal --model K3610", kUsage,
     "--pitch does nothing here"},
    {"DepthOfAFile", "calibrate --target a.json --depth 4 a.csv -o a.cal --model K3610", kUsage,
     "--depth does nothing here"},
    {"StreamWithoutFormat", "capture strips -n 1 -o - --virtual K3610", kUsage, "--format"},
    {"StreamOfACloud", "capture strips -n 1 --format ply -o - --virtual K3610", kUsage,
     "cannot be streamed"},
    {"StreamOfAnArray", "capture strips -t 1 --format npy -o - --virtual K3610", kUsage,
     "-n COUNT"},
    {"StreamOfPictures", "capture images -n 2 --format png -o - --virtual K3610", kUsage,
     "stream pgm"},
    {"NoSuchDump", "reg dump --diff /nonexistent/a /nonexistent/b --model K3610", kFile,
     "cannot read"},
    {"NoLimit", "capture strips -o /tmp/x.csv --virtual K3610", kUsage, "-n COUNT or -t SECONDS"},
    {"LongHeightMap", "capture strips -n 40001 -o /tmp/x.png --virtual K3610", kUsage, ".npy"},
    {"NoFormat", "capture strips -n 1 -o /tmp/x.jpg --virtual K3610", kUsage, "csv, npy, ply"},
    {"WrongFormat", "capture images -n 1 -o /tmp/x.ply --virtual K3610", kUsage, "npy, png, pgm"},
    {"NoDirectory", "capture strips -n 1 -o /nonexistent/x.csv --virtual K3610", kFile,
     "create the directory first"},
    {"PowerIsNoNumber", "power nan --virtual K3610", kUsage, "not in the range 0 - 100"},
    {"TimeIsNoNumber", "capture strips -t nan -o /tmp/x.csv --virtual K3610", kUsage, "range"},
    {"CountIsNegative", "capture strips -n -1 -o /tmp/x.csv --virtual K3610", kUsage, "range"},
    {"WhatToCapture", "capture -n 1 -o /tmp/x.csv --virtual K3610", kUsage, "strips-or-images"},
    {"DirectoryForOutput", "capture strips -n 1 --format csv -o /tmp --virtual K3610", kFile,
     "/tmp: Is a directory"},
    {"DirectoryForDump", "reg dump --diff /tmp --virtual K3610", kFile, "/tmp: Is a directory"},
    {"DirectoryForContent", "eeprom load /tmp --virtual K3610", kFile, "/tmp: Is a directory"},
    {"EndlessContent", "eeprom load /dev/zero --virtual K3610", kFile, "File too large"},
    {"NothingToTrace", "trace --virtual K3610", kUsage, "which sub-command"},
    {"UnknownToTrace", "trace --virtual K3610 frobnicate", kUsage, "--help"},
    {"TraceOfAModel", "trace info --virtual K3610", kUsage, "--virtual before the sub-command"},
    {"TraceOfAScene", "trace --virtual K3610 info --scene plane", kUsage,
     "--scene before the sub-command"},
    {"OpticsOfHardware", "info --model K3610 --optics real", kUsage, "add --virtual CODE"},
    {"SceneOfHardware", "info --model K3610 --scene plane", kUsage, "add --virtual CODE"},
    {"UnknownOptics", "info --virtual K3610 --optics fine", kUsage, "ideal, real and real:SEED"},
    {"OpticsWithoutSeed", "info --virtual K3610 --optics real:", kUsage,
     "ideal, real and real:SEED"},
    {"UnknownScene", "info --virtual K3610 --scene ball", kUsage, "belt, and plane, sawtooth"},
    {"PoseWithoutEnd", "info --virtual K3610 --scene plane,", kUsage, "belt, and plane"},
    {"TooMuchTilt", "info --virtual K3610 --scene plane,tilt=16", kUsage, "tilt from -15 to 15"},
};

INSTANTIATE_TEST_SUITE_P(Mistakes, Mistaken, ::testing::ValuesIn(kMistakes),
                         [](const auto& info) { return std::string(info.param.name); });

// What a run refuses before it touches anything, its rehearsal refuses in the same words.
class Rehearsed : public ::testing::TestWithParam<const char*> {};

TEST_P(Rehearsed, RefusesWhatTheRunRefuses) {
  const Directory directory;
  WriteFile(directory / "mine.csv", "mine");
  const std::string arguments = std::string(GetParam()) + " --virtual K3820";
  const ToolResult run = ToolRun(arguments).In(directory.path()).Run();
  const ToolResult rehearsal = ToolRun(arguments + " --dry-run").In(directory.path()).Run();
  EXPECT_NE(run.status, 0);
  EXPECT_EQ(rehearsal.status, run.status);
  EXPECT_EQ(rehearsal.err, run.err);
  EXPECT_EQ(rehearsal.out, "");
}

INSTANTIATE_TEST_SUITE_P(Refusals, Rehearsed,
                         ::testing::Values("capture strips -n 1 -o mine.csv",
                                           "capture strips -n 1 -o missing/x.csv",
                                           "capture strips -n 1 -o x.csv --roi 1 2 3 4",
                                           "capture strips -n 1 -o x.csv --gain 6",
                                           "watch --roi 1 2 3 4", "roi 1 2 3 4",
                                           "exposure 100 --gain 9"));

// A refusal by a device that has been set up: a plain line, and the library's text on request.
TEST(Device, ThatRefusesIsToldInPlainWords) {
  const ToolResult result =
      ToolRun("power 30 --virtual K3610").With("TESSALINE_BOARD_FAULTS", "absent pot").Run();
  EXPECT_EQ(result.status, kNegative);
  EXPECT_EQ(CountLines(result.err), 1) << result.err;
  EXPECT_THAT(result.err, HasSubstr("SetLaserPower(30) was refused by the device; \"tessaline "
                                    "check\" tests the board"));
}

TEST(Board, OfAnotherModelIsTold) {
  for (const char* arguments : {"info --model K3920", "exposure --model K3920 --json"}) {
    const ToolResult result = ToolRun(arguments).With("TESSALINE_BOARD", "K3610").Run();
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_THAT(result.err,
                HasSubstr("TESSALINE_BOARD plugs in the virtual board of a K3610, but the model "
                          "is K3920"));
  }
}

class OnTheVirtualBoard : public ::testing::TestWithParam<const char*> {};

TEST_P(OnTheVirtualBoard, EveryAnswerSaysSo) {
  const Directory directory;
  const auto run = [&](const char* format) {
    return ToolRun(GetParam() + std::string(format) + " --virtual K3610")
        .In(directory.path())
        .Run();
  };
  EXPECT_THAT(run("").out, StartsWith("# virtual board of a K3610\n"));
  EXPECT_THAT(run(" --json").out, HasSubstr("\"board\": \"virtual\""));
}

INSTANTIATE_TEST_SUITE_P(Commands, OnTheVirtualBoard,
                         ::testing::Values("reg read EXP_TIME_1", "exposure", "roi", "trigger",
                                           "laser status", "power 30"));

TEST(Device, ThatMayNotBeOpenedIsTold) {
  const ToolResult result =
      ToolRun("info --virtual K3610").With("TESSALINE_BOARD_FAULTS", "call fpga open EACCES").Run();
  EXPECT_EQ(result.status, kNoPermission);
  EXPECT_THAT(result.err, AllOf(HasSubstr("/dev/mem"), HasSubstr("run as root")));
}

TEST(Device, ThatDoesNotStartIsTold) {
  const ToolResult result = ToolRun("led green --virtual K3610")
                                .With("TESSALINE_BOARD_FAULTS", "call video1 open ENOENT")
                                .Run();
  EXPECT_EQ(result.status, kUnreachable);
  EXPECT_THAT(result.err, HasSubstr("cannot open /dev/video1 (strips)"));
}

TEST(Faults, ThatMakeNoSenseEndTheProgram) {
  const ToolResult result =
      ToolRun("info --virtual K3610").With("TESSALINE_BOARD_FAULTS", "call fpga").Run();
  EXPECT_EQ(result.status, 2);
  EXPECT_THAT(result.err, HasSubstr("call DEVICE OPERATION ERRNO"));
}

TEST(Faults, ComeFromAFile) {
  const Directory directory;
  WriteFile(directory / "faults", "# none of this\nregister FPGA_VERSION 0x00160203\n");
  const auto info = ToolRun("info --json --virtual K3610")
                        .With("TESSALINE_BOARD_FAULTS", "@" + (directory / "faults"))
                        .Run()
                        .Json();
  EXPECT_EQ(info["fpga"]["version"], 0x0203);
}

}  // namespace
}  // namespace tessaline_test
