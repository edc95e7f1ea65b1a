// The self-check, on a board without fault and with planted ones: it names each.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <set>
#include <string>

#include "ToolRun.h"

namespace tessaline_test {
namespace {

using ::testing::Contains;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::IsSupersetOf;
using ::testing::Not;

std::set<std::string> IdsWith(const nlohmann::json& report, const std::string& verdict) {
  std::set<std::string> ids;
  for (const auto& step : report["steps"]) {
    if (step["verdict"] == verdict) ids.insert(step["id"]);
  }
  return ids;
}

class CheckModel : public ::testing::TestWithParam<const char*> {};

TEST_P(CheckModel, PassesOnASoundBoard) {
  const ToolResult result = RunTool(std::string("check --laser --json --virtual ") + GetParam());
  const auto report = result.Json();
  ASSERT_TRUE(report.is_object()) << result.out << result.err;
  EXPECT_EQ(result.status, 0) << result.out;
  EXPECT_THAT(IdsWith(report, "fail"), IsEmpty()) << result.out;
  EXPECT_THAT(IdsWith(report, "skipped"), IsEmpty()) << result.out;
  EXPECT_GE(report["passed"], 25);
  EXPECT_EQ(result.err, "");
}

INSTANTIATE_TEST_SUITE_P(Products, CheckModel,
                         ::testing::Values("K3610", "K3710", "K3710ch16arm_rebuild", "K3810",
                                           "K3820", "K3920", "K3920arm_rebuild", "K4010"));

// A fault planted on the board, the step that must fail for it, and what its line must
// say.
struct Planted {
  const char* name;
  const char* model;
  const char* fault;
  const char* step;
  const char* says;
};

std::ostream& operator<<(std::ostream& out, const Planted& planted) { return out << planted.name; }

class CheckFault : public ::testing::TestWithParam<Planted> {};

TEST_P(CheckFault, IsNamed) {
  const Planted& planted = GetParam();
  const ToolResult result = ToolRun(std::string("check --laser --json --virtual ") + planted.model)
                                .With("TESSALINE_BOARD_FAULTS", planted.fault)
                                .Run();
  const auto report = result.Json();
  ASSERT_TRUE(report.is_object()) << result.out << result.err;
  EXPECT_EQ(result.status, 1);
  EXPECT_THAT(IdsWith(report, "fail"), Contains(planted.step)) << result.out;
  for (const auto& step : report["steps"]) {
    if (step["id"] != planted.step) continue;
    EXPECT_THAT(step["detail"].get<std::string>(), HasSubstr(planted.says));
    EXPECT_NE(step["advice"], "");
  }
}

constexpr Planted kPlanted[]{
    {"NoRegisters", "K3610", "call fpga open EACCES", "node.mem", "Permission denied"},
    {"NoImageDevice", "K3610", "call video0 open ENOENT", "node.video0", "No such file"},
    {"NoStripDevice", "K3610", "call video1 open ENODEV", "node.video1", "No such device"},
    {"NoSensorBus", "K3610", "call i2c-0 open ENOENT", "node.i2c-0", "No such file"},
    {"NoLaserBus", "K3610", "call i2c-1 open EACCES", "node.i2c-1", "Permission denied"},
    {"NoSpiBus", "K3920", "call spi1.0 open ENOENT", "node.spidev1.0", "No such file"},
    {"NoGpio", "K3610", "call gpio open EACCES", "node.export", "Permission denied"},
    {"NoThermometer", "K3610", "call iio open ENOENT", "temperature", "cannot be read"},
    {"NoTriggerInterrupt", "K3610", "call uio0 open ENOENT", "node.uio0", "No such file"},
    {"NoDaInterrupt", "K3610", "call uio1 open EACCES", "node.uio1", "Permission denied"},
    {"NoDmaBuffer", "K3920", "call udmabuf0 open ENOENT", "node.udmabuf0", "No such file"},
    {"FpgaNotLoaded", "K3610", "register FPGA_VERSION 0", "fpga.answers", "0x00000000"},
    {"ForeignBitStream", "K3610", "register FPGA_VERSION 0x00180100", "fpga.series", "series 24"},
    {"SonySensorAbsent", "K3610", "absent sensor", "sensor", "error"},
    {"SpiSensorAbsent", "K3820", "absent sensor", "sensor", "reads 0"},
    {"GsprintAbsent", "K3920", "absent sensor", "sensor", "reads 0"},
    {"E2vAbsent", "K4010", "absent sensor", "sensor", "Read 0x0001 failed"},
    {"SensorNeverReady", "K4010", "chip sensor 0 0", "start", "has not started"},
    {"PotAbsent", "K3610", "absent pot", "laser.power", "AD5175 does not answer on /dev/i2c-1"},
    {"DaAbsent", "K3610", "absent da", "da", "does not answer on /dev/i2c-1"},
    {"EepromAbsent", "K3920", "absent eeprom", "eeprom.high", "0x51"},
    {"LinesCannotBeWritten", "K3610", "call gpio write EPERM", "gpio.light", "961"},
    {"Hot", "K3610", "temperature 3300", "temperature", "degrees"},
    {"ImageBuffersRefused", "K3610", "call video0 VIDIOC_REQBUFS ENOMEM", "images.arrive",
     "VIDIOC_REQBUFS failed: Cannot allocate memory"},
    {"StripStreamRefused", "K3610", "call video1 VIDIOC_STREAMON EIO", "strips.arrive",
     "VIDIOC_STREAMON failed: Input/output error"},
    {"ImageDequeueFails", "K3610", "call video0 VIDIOC_DQBUF EIO", "images.arrive",
     "/dev/video0 delivers no frames"},
    {"StripDequeueFails", "K3610", "call video1 VIDIOC_DQBUF EIO", "strips.arrive",
     "/dev/video1 delivers no frames"},
    {"ImagesLost", "K3610", "frame images lost 8 1", "images.ids", "1 ids missing in 1 gaps"},
    {"StripsLost", "K3610", "frame strips lost 2 1", "strips.ids", "missing"},
    {"NoImages", "K3610", "frame images lost", "images.arrive", "nothing came"},
    {"ImagesCorrupt", "K3610", "frame images corrupt 8 2", "images.whole", "2 malformed"},
    {"ImagesTruncated", "K3610", "frame images truncated 4 3", "images.whole", "time stamp"},
    {"StripsCorrupt", "K3610", "frame strips corrupt 2 1", "strips.whole", "1 malformed"},
};

INSTANTIATE_TEST_SUITE_P(Planted, CheckFault, ::testing::ValuesIn(kPlanted),
                         [](const auto& info) { return std::string(info.param.name); });

// What fails besides is no more than follows from the fault.
TEST(Check, TellsFaultsApart) {
  const ToolResult result = ToolRun("check --json --virtual K3610")
                                .With("TESSALINE_BOARD_FAULTS", "absent eeprom; absent pot")
                                .Run();
  EXPECT_EQ(IdsWith(result.Json(), "fail"),
            (std::set<std::string>{"eeprom.high", "eeprom.low", "laser.power"}))
      << result.out;
}

TEST(Check, TellsPeopleWhatToDo) {
  const ToolResult result =
      ToolRun("check --virtual K3610").With("TESSALINE_BOARD_FAULTS", "absent da").Run();
  EXPECT_EQ(result.status, 1);
  EXPECT_THAT(result.out, HasSubstr("FAIL  DA converter answers"));
  EXPECT_THAT(result.out, HasSubstr("-> look with \"i2cdetect -y 1\""));
  EXPECT_THAT(result.out, HasSubstr("n/a   laser line is seen"));
}

// A bus that may not be opened says nothing about the chips on it.
TEST(Check, BlamesNoChipForAMissingPermission) {
  const ToolResult result =
      ToolRun("check --json --virtual K3610")
          .With("TESSALINE_BOARD_FAULTS", "call i2c-0 open EACCES; call i2c-1 open EACCES")
          .Run();
  EXPECT_THAT(IdsWith(result.Json(), "skipped"),
              IsSupersetOf({"eeprom.low", "eeprom.high", "laser.power", "da"}))
      << result.out;
}

// What is cut short has not failed.
TEST(Check, SaysThatItWasInterrupted) {
  const ToolResult result = ToolRun("check --virtual K3610")
                                .With("TESSALINE_BOARD_FAULTS", "frame images lost")
                                .When(
                                    [](const ToolResult& now) {
                                      return now.out.find("DA converter answers") != now.out.npos;
                                    },
                                    [](pid_t child) { kill(child, SIGINT); })
                                .Run();
  EXPECT_EQ(result.status, kInterrupted);
  EXPECT_THAT(result.out, HasSubstr("\ninterrupted: "));
  EXPECT_THAT(result.out, Not(HasSubstr("FAIL")));
}

TEST(Check, LeavesTheBoardAloneOnRequest) {
  const Directory directory;
  const std::string transcript = directory / "transcript.txt";
  for (const char* how : {"--passive", "--dry-run"}) {
    const ToolResult result = ToolRun(std::string("check --virtual K3610 ") + how)
                                  .With("TESSALINE_BOARD_TRANSCRIPT", transcript)
                                  .Run();
    EXPECT_EQ(result.status, 0) << result.out;
    EXPECT_EQ(FileText(transcript).find("write"), std::string::npos) << how;
  }
}

TEST(Check, FailsOnAMachineThatIsNoBoard) {
  const ToolResult result = RunTool("check --json --model K3610");
  EXPECT_EQ(result.status, 1);
  EXPECT_THAT(IdsWith(result.Json(), "skipped"), Contains("fpga.answers"));
}

}  // namespace
}  // namespace tessaline_test
